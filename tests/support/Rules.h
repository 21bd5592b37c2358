// Rules in a few words, and rule tables as lines that a person can read.
#pragma once

#include "RecordingChannel.h"
#include "StateAcl.h"

namespace Test {

// A rule that permits everything, until it is told otherwise.
class RuleOf {
 public:
   explicit RuleOf( Acl::ActionType action = Acl::permit ) { rule_.actionIs( action ); }
   RuleOf & proto( U8 number );
   RuleOf & from( const char * address, U32 mask = 0xffffffff );
   RuleOf & to( const char * address, U32 mask = 0xffffffff );
   RuleOf & sport( Acl::RangeOper oper, Acl::RangeSpec::Values values );
   RuleOf & dport( Acl::RangeOper oper, Acl::RangeSpec::Values values );
   RuleOf & len( Acl::RangeOper oper, Acl::RangeSpec::Values values );
   RuleOf & flags( U8 tcpFlags );
   RuleOf & ttl( Acl::RangeOper oper, U8 value );
   RuleOf & dscp( U8 value );
   RuleOf & icmp( U16 type, U16 code = Acl::icmpAny );
   RuleOf & fragments();
   RuleOf & log();
   operator Acl::RuleConfig() const { return rule_; }

 private:
   template < typename Change >
   RuleOf & filter( const Change & change );
   Acl::RuleConfig rule_;
};

RuleOf tcp( Acl::ActionType action = Acl::permit );
RuleOf udp( Acl::ActionType action = Acl::permit );

// Sequence numbers 10, 20 and so on.
Acl::Entries entries( std::initializer_list< Acl::RuleConfig > rules );
Gant::Ptr< Acl::AclConfig > list( const char * name, std::initializer_list< Acl::RuleConfig > rules );

// Without the fields that match anything or do nothing: "rule {proto 6 permit true counter_id 3}".
Lines brief( Lines lines );

} // namespace Test
