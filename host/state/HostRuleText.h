// Rules of access lists in the words of router command lines, and back.
//
//    [SEQUENCE] remark TEXT
//    [SEQUENCE] permit|deny PROTOCOL SOURCE [PORTS] DESTINATION [PORTS] [OPTION]...
//    [SEQUENCE] permit|deny SOURCE-MAC DESTINATION-MAC [ETHERTYPE]          in a MAC list
//
// Addresses are `any`, `host A`, `A`, `A/LEN` or `A WILDCARD`, whose set bits are not looked at and need not be
// contiguous. Ports are `eq N...`, `neq N...`, `gt N`, `lt N` or `range A B`. Options are `established`, TCP flags (one
// of them has to be set), `dscp N`, `ttl eq N`, `length` and an operator as of ports, `fragments`, `log`, and, of ICMP,
// `type N [code N]` or a name. Protocols, ports, DSCP values and ICMP types have names or numbers.
#pragma once

#include "StateAcl.h"

#include <optional>
#include <string>

namespace Host {

struct RuleLine {
   std::optional< U32 > sequence; // from 1
   Acl::Entry entry;
};

// Gives what is wrong with the text, empty when nothing is. Whether the data plane can hold the rule is not asked:
// Acl::validate tells that.
std::string parseRule( Acl::AclType type, std::string_view text, RuleLine & line );
// The same words, without the sequence number. What a MAC rule matches is its remark.
std::string textOfRule( const Acl::Entry & entry );

// A number from 0 to 255 or a name; nothing: neither.
std::optional< U8 > protocolOf( std::string_view text );
// "tcp", or the number; 0 is "ip".
std::string protocolName( U8 protocol );
// A number from 0 to 63 or one of the names of RFC 2474, 2597 and 3246; nothing: neither.
std::optional< U8 > dscpOf( std::string_view text );
std::string dscpName( U8 dscp );

} // namespace Host
