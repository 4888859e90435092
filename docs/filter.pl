#!/usr/bin/perl
# What Doxygen reads in place of a file: INPUT_FILTER in Doxyfile.
#
#     filter.pl FILE
use strict;
use warnings;

my $file = $ARGV[0];
if ($file =~ /\.md$/) {
    # Headings that are linked to get a name, as they have one where Markdown is shown elsewhere.
    while (<>) {
        s/^## ([0-9]+)$/## $1 {#error_$1}/;
        s/\]\(#([0-9]+)\)/](#error_$1)/g;
        # Doxygen links the name of a class, but not in code.
        s/`(Kestro::[\w:]+)(<T>)?((?:\(\))?)`/$1$3/g if $file =~ /reference\.md$/;
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
