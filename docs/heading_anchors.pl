#!/usr/bin/perl -p
# Gives the headings of a page the anchors that links to them have on hosting sites: Doxygen makes up
# others.
$code = !$code if /^```/;
if (!$code && /^#+ (.*)/) {
  my $anchor = lc $1;
  $anchor =~ s/[^\w\- ]//g;
  $anchor =~ tr/ /-/;
  s/$/ {#$anchor}/;
}
