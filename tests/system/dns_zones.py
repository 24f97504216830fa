"""The zones of the DNS tests. Each has a name server with an address of its own, so that an answer
ends in an address record. Names that are missing on purpose have more than 15 characters."""

HEAD = """$TTL 60
@ IN SOA ns hostmaster 1 3600 600 86400 60
@ IN NS ns
ns IN A 127.0.0.1
"""

ZONES = {
    "forward.test.": HEAD + """
host-with-an-a IN A 192.0.2.10
host-with-an-aaaa IN AAAA 2001:db8::10
host-with-both IN A 192.0.2.11
host-with-both IN AAAA 2001:db8::11
domain-with-an-mx IN MX 10 mailhost
mailhost IN A 192.0.2.12
domain-with-a-text IN TXT "neither address nor mail exchanger"
alias-of-a-host IN CNAME host-with-an-a
alias-of-nothing IN CNAME missing-host-name
alias-of-a-text IN CNAME domain-with-a-text
""",
    "2.0.192.in-addr.arpa.": HEAD + """
1 IN PTR Host-With-An-A.Forward.Test.
2 IN PTR dyn-192-0-2-2.forward.test.
3 IN PTR several-a.forward.test.
3 IN PTR several-b.forward.test.
3 IN PTR several-c.forward.test.
4 IN CNAME 4.elsewhere.test.
5 IN CNAME chain.5
chain.5 IN CNAME end.5
end.5 IN PTR chained.forward.test.
6 IN TXT "no name"
7 IN PTR localhost.
8 IN PTR .
9 IN CNAME missing-reverse-name
""",
    "8.b.d.0.1.0.0.2.ip6.arpa.": HEAD + """
0.1.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0.0 IN PTR host-with-an-aaaa.forward.test.
""",
    "rbl.test.": HEAD + """
2.2.0.192 IN A 127.0.0.2
3.2.0.192 IN AAAA 2001:db8::2
4.2.0.192 IN A 192.0.2.1
5.2.0.192 IN TXT "listed by text alone is not listed"
""",
}

# A zone that nobody serves: NSD refuses to speak about it.
REFUSED_DOMAIN = "refused-domain.example"
REFUSED_CLIENT = "198.51.100.1"
