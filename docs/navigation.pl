#!/usr/bin/perl
# Doxygen's layout on standard output: the navigation tree is the table "Read on" of README.md, followed
# by the reference. Fails if the table lacks a page of docs/.
#
#     navigation.pl README.md
use strict;
use warnings;

sub tab { my ($title, $url, $inner) = @_;
    return qq(<tab type="usergroup" title="$title">$inner</tab>\n) if defined $inner;
    return qq(<tab type="user" url="$url" title="$title"/>\n);
}

my %unlisted = map { $_ => 1 } glob 'docs/*.md';
my $tree = '';
while (<>) {
    next unless /^\| ([^|]+?) \| (\[.*) \|$/;
    my ($group, $links) = ($1, $2);
    my $pages = '';
    while ($links =~ /\[([^]]+)\]\(([^)]+)\)/g) {
        my ($title, $page) = ($1, $2);
        delete $unlisted{$page};
        $page =~ s/\.md$//;
        $page =~ s/[^A-Za-z0-9]/_/g;
        $pages .= tab($title, "\@ref md_$page");
    }
    $tree .= tab($group, undef, $pages);
}
die "README.md, Read on, lacks: @{[sort keys %unlisted]}\n" if %unlisted;
print <<"END";
<doxygenlayout version="1.0"><navindex>
<tab type="mainpage" visible="yes" title="KestroDB"/>
$tree<tab type="usergroup" title="Reference">
<tab type="classlist" visible="yes" title="Classes"/>
<tab type="filelist" visible="yes" title="Headers"/>
<tab type="namespacemembers" visible="yes" title="Functions and types"/>
<tab type="globals" visible="yes" title="Global functions"/>
</tab>
<tab type="pages" visible="no"/><tab type="modules" visible="no"/>
<tab type="namespaces" visible="no"/><tab type="classes" visible="no"/>
<tab type="files" visible="no"/><tab type="examples" visible="no"/>
</navindex></doxygenlayout>
END
