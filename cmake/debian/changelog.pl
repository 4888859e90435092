#!/usr/bin/perl
# CHANGELOG.md on standard input, its releases in the form of a Debian changelog on standard output.
#
#     changelog.pl DEBIAN_REVISION MAINTAINER
use strict;
use warnings;
use POSIX qw(strftime setlocale LC_TIME);
use Text::Wrap qw(wrap);

my ($revision, $maintainer) = @ARGV;
setlocale(LC_TIME, 'C');
$Text::Wrap::columns = 80;
my @changelog = split /^## /m, do { local $/; <STDIN> };
my @releases = grep { /^\[[0-9]/ } @changelog;
die "no release found\n" unless @releases;
for (@releases) {
    my ($version, $year, $month, $day) = /^\[([0-9.]+)\] - ([0-9]+)-([0-9]+)-([0-9]+)$/m
        or die "not \"## [VERSION] - YYYY-MM-DD\": $_";
    print "kestrodb ($version-$revision) unstable; urgency=medium\n\n";
    for my $item (/^- (.*\n(?:  .*\n)*)/mg) {
        $item = join " ", split " ", $item =~ tr/`//dr;
        print wrap('  * ', '    ', $item), "\n";
    }
    my $date = strftime('%a, %d %b %Y 00:00:00 +0000', 0, 0, 0, $day, $month - 1, $year - 1900);
    print "\n -- $maintainer  $date\n\n";
}
