// A rule of a rule table: what it matches in a packet, and what it does to one.
#pragma once

#include "DpIpv4.h"
#include "DpRefusal.h"

#include "vex/acl.pb.h"

#include <optional>

namespace Vexdp {

// What rules look at in an IPv4 packet. The transport header's fields are there only where the packet holds them: not
// in a fragment behind the first, not in a protocol without them, not behind the end of a short packet.
struct RuleKey {
   Ipv4Addr src;
   Ipv4Addr dst;
   std::uint16_t len = 0; // IPv4 total length, bytes
   std::uint8_t ttl = 0;
   std::uint8_t dscp = 0;
   std::uint8_t proto = 0;
   std::optional< std::uint16_t > sport; // of TCP, UDP, DCCP, SCTP and UDP-Lite
   std::optional< std::uint16_t > dport;
   std::optional< std::uint8_t > tcpFlags;
   std::optional< std::uint8_t > icmpType;
   std::optional< std::uint8_t > icmpCode;

   static RuleKey of( const Ipv4Header & header, const Packet & packet );

   // As a search takes it: digits of four bits, two in a byte. Of source and destination, protocol, ports, DSCP, TCP
   // flags, ICMP type; what is not there is zero.
   static constexpr std::size_t kDigits = 32;
   void bytes( std::uint8_t * at ) const;
};

struct RuleRange {
   std::uint16_t lower = 0;
   std::uint16_t upper = 65535;

   bool any() const { return lower == 0 && upper == 65535; }
   bool has( std::uint16_t value ) const { return lower <= value && value <= upper; }
   // A range narrower than any doesn't have a value that isn't there.
   bool has( std::optional< std::uint16_t > value ) const { return any() || ( value && has( *value ) ); }
};

// A field that the record leaves out matches anything, or does nothing.
class Rule {
 public:
   using Record = vex::pb::KyIpAclArg::IpRule;

   static constexpr std::uint16_t kAnyIcmp = 65535;
   static constexpr std::uint8_t kAnyDscp = 64;

   // ERANGE: a field doesn't hold its value. EINVAL: a range upside down, an action without its value.
   static Outcome check( const Record & record );
   // REQUIRES: check( record ) is ok
   explicit Rule( const Record & record );

   bool matches( const RuleKey & key ) const;
   // A bit for each digit that it cares about.
   std::uint32_t digits() const;
   // A bit for each of the digit's 16 values: without it no key with the value matches.
   unsigned valuesOf( unsigned digit ) const;

   // What it decides; nothing where it only classifies.
   std::optional< bool > permit;
   bool log = false;
   CounterId counter = kNoCounter;
   std::optional< std::uint8_t > setDscp;
   std::optional< std::uint8_t > setTrafficClass;

 private:
   bool matchesTransport( const RuleKey & key ) const;

   std::uint32_t src_, srcMask_, dst_, dstMask_; // bits outside of a mask are zero
   RuleRange sport_, dport_, len_, ttl_;
   std::uint16_t icmpType_, icmpCode_;
   std::uint8_t proto_;    // 0: any
   std::uint8_t tcpFlags_; // all of these are set, whatever the others are
   std::uint8_t dscp_;
};

} // namespace Vexdp
