#!/usr/bin/env perl
# Makes country.mmdb, the small country database of the tests. Needs Debian's
# libmaxmind-db-writer-perl:
#
#     perl tests/data/make-country-db.pl tests/data/country.mmdb
#
# Networks are documentation and benchmark ranges, and a few routable ones that only the tests
# know. 203.0.113.0/24 has a record without a country code on purpose.
use strict;
use warnings;
use MaxMind::DB::Writer::Tree;

my %types = (
    country   => 'map',
    iso_code  => 'utf8_string',
    continent => 'map',
    code      => 'utf8_string',
);
my $tree = MaxMind::DB::Writer::Tree->new(
    ip_version            => 6,
    record_size           => 24,
    database_type         => 'Quillfence-Test-Country',
    languages             => ['en'],
    description           => { en => 'Countries for the tests of Quillfence' },
    map_key_type_callback => sub { $types{ $_[0] } },
    remove_reserved_networks => 0,
);
my @rows = (
    [ '192.0.2.0/24',     { country => { iso_code => 'DE' } } ],
    [ '198.51.100.0/24',  { country => { iso_code => 'FR' }, continent => { code => 'EU' } } ],
    [ '198.51.100.128/25', { country => { iso_code => 'CH' } } ],
    [ '203.0.113.0/24',   { continent => { code => 'EU' } } ],
    [ '2001:db8:1::/48',  { country => { iso_code => 'JP' } } ],
    [ '2001:db8:2::/48',  { country => { iso_code => 'BR' } } ],
);
$tree->insert_network(@$_) for @rows;
open my $file, '>:raw', $ARGV[0] or die "$ARGV[0]: $!\n";
$tree->write_tree($file);
close $file or die "$ARGV[0]: $!\n";
