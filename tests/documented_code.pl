#!/usr/bin/perl
# Every C++ block in README.md and docs/ stands as it is, but for its indentation, in a program of
# examples/, where it is compiled and run.
#
#     documented_code.pl SOURCE_DIRECTORY
use strict;
use warnings;

my $top = shift;
sub text { local (@ARGV, $/) = @_; return scalar <> }
sub flat { my $text = shift; $text =~ s/^[ \t]+//mg; return $text }

my @programs = map { flat(text($_)) } glob "$top/examples/*.cpp";
my ($blocks, $failed) = (0, 0);
# The class on the page of kestro-record is what that program writes, which its own test compares.
for my $page (grep { !/kestro-record/ } "$top/README.md", glob "$top/docs/*.md") {
    my $text = text($page);
    while ($text =~ /^```cpp\n(.*?)^```$/msg) {
        my $block = flat($1);
        ++$blocks;
        next if grep { index($_, $block) >= 0 } @programs;
        print STDERR "$page shows what no example has:\n$1";
        $failed = 1;
    }
}
die "no block found\n" unless $blocks;
exit $failed;
