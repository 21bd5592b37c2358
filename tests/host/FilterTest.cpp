// Access lists and policies as they are told, and what the data plane gets of them.
#include "HostRuleText.h"
#include "HostTestRouter.h"

#include <gtest/gtest.h>

namespace {

using namespace Test;

TEST( HostRuleText, rulesReadBackAsTheyAreWritten ) {
   for ( const char * text :
         { "permit ip any any", "deny tcp any host 192.0.2.10 eq 80 443 log", "permit udp any neq 53 10.0.0.0/8",
           "deny udp any any range 33434 33534", "permit tcp 10.0.7.0 0.255.0.255 gt 1023 any lt 1024 established",
           "permit tcp any any fin syn", "permit icmp any any echo", "permit icmp any any unreachable code 4",
           "permit icmp any any type 13", "permit 200 any any dscp ef", "deny ospf any any dscp 7 ttl eq 1",
           "permit ip any any length range 64 1500 fragments", "remark  what it is for" } ) {
      Host::RuleLine line;
      EXPECT_EQ( Host::parseRule( Acl::ip, text, line ), "" ) << text;
      EXPECT_FALSE( line.sequence );
      const auto written = Host::textOfRule( line.entry );
      if ( !line.entry.isRemark ) {
         EXPECT_EQ( written, text );
      }
      Host::RuleLine again;
      EXPECT_EQ( Host::parseRule( Acl::ip, "30 " + written, again ), "" );
      EXPECT_EQ( again.sequence, 30u );
      EXPECT_TRUE( again.entry == line.entry ) << text;
   }
}

TEST( HostRuleText, whatIsNoRuleIsNamed ) {
   const std::pair< const char *, const char * > cases[] = {
        { "", "permit or deny is missing" },
        { "0 permit ip any any", "sequence \"0\" is not a number from 1 to 2147483647" },
        { "4294967296 permit ip any any", "sequence \"4294967296\" is not a number from 1 to 2147483647" },
        { "allow ip any any", "\"allow\" is not permit, deny or remark" },
        { "permit", "the protocol is missing" },
        { "permit tpc any any", "\"tpc\" is not a protocol: a name, or a number from 1 to 255" },
        { "permit 256 any any", "\"256\" is not a protocol: a name, or a number from 1 to 255" },
        { "permit ip any", "the destination is missing" },
        { "permit ip 10.0.0.0/33 any", "the source \"10.0.0.0/33\" is not any, host A, A/LEN or A WILDCARD" },
        { "permit ip any 2001:db8::/32", "the destination \"2001:db8::/32\" is IPv6, and the list is of IPv4" },
        { "permit tcp any any eq", "port is missing" },
        { "permit tcp any any eq 65536", "port \"65536\" is not a number from 0 to 65535" },
        { "permit tcp any any range 5", "port is missing" },
        { "permit ip any any dscp 64", "dscp \"64\" is not a name, or a number from 0 to 63" },
        { "permit ip any any ttl range 1 2", "ttl is followed by eq, neq, gt or lt, not \"range\"" },
        { "permit ip any any length 64", "length is followed by eq, neq, gt, lt or range" },
        { "permit udp any any echo", "\"echo\" is not expected here" },
   };
   for ( const auto & [ text, wrong ] : cases ) {
      Host::RuleLine line;
      EXPECT_EQ( Host::parseRule( Acl::ip, text, line ), wrong ) << text;
   }
}

const char * const filtered = R"(
access-lists:
  - {name: web, rules: [10 permit tcp any any eq 80 443, 20 deny ip any any]}
  - {name: voice, rules: [permit udp any any]}
class-maps:
  - {name: voice, match: {access-list: voice}}
policy-maps:
  - {name: edge, classes: [{class: voice, set: {dscp: ef}}]}
)";
const char * const filteredPorts = R"(
interfaces:
  - {name: Ethernet1, access-group: {in: web, out: web}, service-policy: {input: edge}}
  - {name: Ethernet2, access-group: {in: web}}
)";

TEST( HostFilters, aClassMapSaysWhichDenyTakesNothingOutOfIt ) {
   HostedState router;
   router.describe( filtered );
   const struct {
      const char * rules;
      const char * said;
   } cases[] = {
        { "[deny udp any any eq 5, permit tcp any any, permit udp any any]", "10 30" },
        { "[permit udp any any, deny udp any any eq 5]", "" },
        { "[deny udp any any eq 5, permit udp any any gt 5]", "" },
        { "[deny udp 10.0.0.0/8 any, permit udp 11.0.0.0/8 any]", "" },
        { "[deny ip 10.0.0.0/8 any, permit udp 10.9.0.0 0.0.255.255 host 10.0.0.1]", "10 20" },
        { "[deny icmp any any echo, permit icmp any any echo-reply, permit ip any any dscp ef]", "10 30" },
   };
   for ( const auto & [ rules, said ] : cases ) {
      const auto note = router.change( std::string( "replace access-list {name: voice, rules: " ) + rules + "}" );
      const std::string places( said );
      EXPECT_EQ( note, places.empty() ? ""
                                      : "class-map voice: access-list voice: what sequence " + places.substr( 0, 2 ) +
                                             " denies is of the class where sequence " + places.substr( 3 ) +
                                             " permits it: a deny takes nothing out of a class" )
           << rules;
   }
   EXPECT_NE( router.change( "replace class-map {name: voice, match: {access-list: [voice, web]}}" ), "" );
   EXPECT_EQ( router.change( "replace access-list {name: web, rules: [remark the web, 1 permit ip any any]}" ),
              "access-list: access-list web, sequence 1 is that of the remark \"the web\"" );
}

TEST( HostFilters, whatCannotBeHeldIsToldWithItsLineAndTheListsAroundItStay ) {
   HostedState router;
   EXPECT_EQ( router.describe( filtered ), Lines{} );
   EXPECT_EQ(
        router.describe( R"(access-lists:
  - {name: web, rules: [10 permit tcp any any eq 80, 10 deny ip any any]}
  - name: voice
    rules:
      - permit udp any any
      - permit udp any any range 9 5
  - {name: ports, rules: [10 permit ospf any any eq 5]}
  - {name: many, rules: [10 permit tcp any any eq 1 3 5 7 9 11 13 15 17 19 21 23 25 27 29 31 33 35 length neq 64 66 68 70 72 74 76 78 80 82 84 86 88 90
      92 94 96 98 100 fin syn rst]}
  - {name: six, type: ipv6, rules: [permit ipv6 any any]}
  - {name: frames, type: mac, rules: [permit any any 2048]}
  - {name: pieces, rules: [permit ip any any fragments]}
  - {name: 'a b'}
class-maps:
  - {name: vlan, match: {vlan: 7}}
  - {name: six, match: {ipv6-access-list: six}}
  - {name: none, match: {access-list: nobody}}
  - {name: class-default, match: {access-list: web}}
  - {name: frames, match: {access-list: frames}}
  - {name: two, match: {access-list: web, vlan: 7}}
  - {name: good, match: {access-list: web}}
policy-maps:
  - {name: empty}
  - {name: cos, classes: [{class: good, set: {cos: 3}}]}
  - {name: police, classes: [{class: good, police: 1}]}
  - {name: dscp, classes: [{class: good, set: {dscp: 64}}]}
  - {name: class, classes: [{class: nobody}]}
  - {name: twice, classes: [{class: good}, {class: good}]}
interfaces:
  - {name: Ethernet1, access-group: {in: nobody}}
  - {name: Ethernet2, service-policy: {input: nobody}}
  - {name: Ethernet3, service-policy: {output: edge}}
  - {name: Ethernet4, access-group: {in: frames}}
)" ),
        ( Lines{
             "router.yaml:13: access-list name \"a b\" is not one of up to 63 letters, digits, \"-\", \"_\" and \".\"",
             "router.yaml:11: access-list frames: MAC rules are accepted, and this data plane does not apply them",
             "router.yaml:12: access-list pieces, sequence 10: fragments: the rule is accepted, and this data plane "
             "does not apply it",
             "router.yaml:2: access-list web, sequence 10 is there twice",
             "router.yaml:6: access-list voice, sequence 20: destination port range 9 5: the range is upside down",
             "router.yaml:7: access-list ports, sequence 10: protocol 89 has no ports",
             "router.yaml:8: access-list many, sequence 10: it takes 1080 records, the most is 1024",
             "router.yaml:10: access-list six: this data plane has no IPv6 access lists",
             "router.yaml:15: class-map vlan: this data plane does not match a VLAN in a class",
             "router.yaml:16: class-map six: this data plane has no IPv6 access lists",
             "router.yaml:17: class-map none: there is no access-list nobody",
             "router.yaml:18: class-map class-default: the name is that of what no other class matches",
             "router.yaml:19: class-map frames: access-list frames is a MAC list, which this data plane does not apply",
             "router.yaml:20: class-map two matches in one way",
             "router.yaml:23: policy-map empty: it has no class",
             "router.yaml:24: policy-map cos, class good: this data plane sets DSCP and traffic class only",
             "router.yaml:25: policy-map police, class good: this data plane sets DSCP and traffic class only",
             "router.yaml:26: dscp \"64\" is not a name, or a number from 0 to 63",
             "router.yaml:27: policy-map class, class nobody: there is no such class-map",
             "router.yaml:28: policy-map twice, class good: the class stands in it twice",
             "router.yaml:30: interface Ethernet1: there is no access-list nobody",
             "router.yaml:31: interface Ethernet2: there is no policy-map nobody",
             "router.yaml:32: service-policy output edge: this data plane has no output policies",
             "router.yaml:33: interface Ethernet4: access-list frames is a MAC list, which this data plane does not "
             "apply",
        } ) );
   EXPECT_EQ( router.state.aclBook().lists().at( "web" ).fact.entries.size(), 2u );
   EXPECT_EQ( router.state.aclBook().lists().at( "voice" ).fact.entries.size(), 1u );
}

TEST( HostFilters, whatIsNamedStays ) {
   HostedState router;
   router.describe( std::string( filtered ) + filteredPorts );
   EXPECT_EQ( router.change( "del access-list {name: voice}" ), "access-list voice: class-map voice matches by it" );
   EXPECT_EQ( router.change( "del access-list {name: web}" ), "access-list web: interface Ethernet1 has it" );
   EXPECT_EQ( router.change( "replace access-list {name: web, type: mac}" ),
              "access-list web: interface Ethernet1 has it, and its type stays" );
   EXPECT_EQ( router.change( "del class-map {name: voice}" ), "class-map voice: policy-map edge has it" );
   EXPECT_EQ( router.change( "del policy-map {name: edge}" ), "policy-map edge: interface Ethernet1 has it" );
   EXPECT_EQ( router.change( "del policy-map {name: none}" ), "policy-map none does not exist" );
   EXPECT_EQ( router.describe( "interfaces: [{name: Ethernet1}]\n" ), Lines{} );
   EXPECT_TRUE( router.state.aclBook().lists().empty() && router.state.aclBook().policyMaps().empty() );
}

TEST( HostFilters, theTableThatIsOneTooManyIsRefused ) {
   HostedState router;
   std::string lists = "access-lists:\n", intfs = "interfaces:\n";
   for ( int i = 1; i <= 128; ++i ) {
      const auto number = std::to_string( i );
      lists += "  - {name: list" + number + ", rules: [permit ip any any]}\n";
      intfs += "  - {name: Ethernet" + number + ", access-group: {in: list" + number + "}}\n";
   }
   EXPECT_EQ( router.describe( lists + intfs ),
              Lines{ "router.yaml:258: interface Ethernet128: its filters are one more than the 127 access lists and "
                     "policies that the data plane has room for" } );
   EXPECT_EQ( router.change( "add interface {name: Ethernet128, access-group: {in: list1, out: list127}}" ), "" );
}

} // namespace
