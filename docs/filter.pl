#!/usr/bin/perl
# What Doxygen reads in place of a file: INPUT_FILTER in Doxyfile.
#
#     filter.pl FILE
use strict;
use warnings;

my $file = $ARGV[0];
if ($file =~ /\.md$/) {
    # Doxygen gives headings no anchors by their text: each gets one from its page and its text, and the
    # links to it get the same.
    my ($page) = $file =~ /([^\/]+)\.md$/;
    sub name { my ($of, $heading) = @_; return "$of-" . lc($heading =~ s/[^\w -]//gr =~ tr/ /-/r) }
    while (<>) {
        s/^## (.*)$/"$& {#" . name($page, $1) . "}"/e;
        s/\]\((?:[\w\/-]*?([\w-]+)\.md)?#([\w-]+)\)/"](#" . name($1 \/\/ $page, $2) . ")"/ge;
        # Doxygen links the name of a class, but not in code.
        s/`(Kestro::[\w:]+)(<T>)?((?:\(\))?)`/$1$3/g if $page eq 'reference';
        print;
    }
    exit;
}

# A comment is that of all declarations below it, up to a blank line: each gets a copy, but for those
# that say it all themselves.
my (@comment, $indent, $open);
while (<>) {
    if (m{^(\s*)///(?!<)}) {
        @comment = () if !@comment || defined $open;
        ($indent, $open) = ($1, undef);
        push @comment, $_;
    } elsif (/^\s*$/ || !@comment || !/^\Q$indent\E/ || /^\s*(public|protected|private):/) {
        @comment = ();
    } elsif (/^\Q$indent\E[^\s{}]/ && !$open) {
        print @comment if defined $open && !m{///<|~|= (delete|default);};
        $open = /[;}]\s*(\/\/.*)?$/ ? 0 : 1;
    } else {
        $open = 0 if /^\Q$indent\E(\s.*)?[;}]\s*$/;
    }
    print "/// Copies member by member.\n" if /\(const \w+&.*= default;/;
    print;
}
