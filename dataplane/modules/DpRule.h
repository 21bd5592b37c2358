// A rule of a rule table: what it matches in a packet, and what it does to one.
#pragma once

#include "DpIpv4.h"
#include "DpRefusal.h"

#include "vex/acl.pb.h"

#include <array>
#include <optional>

namespace Vexdp {

// What rules look at in an IPv4 packet. The transport header's fields are there only where the packet holds them: not
// in a fragment behind the first, not in a protocol without them, not behind the end of a short packet. It is laid out
// to be compared in few steps.
struct RuleKey {
   // Of what rules have ranges of.
   enum Ranged : std::uint8_t { sport, dport, len, ttl, kRanged }; // ports of TCP, UDP, DCCP, SCTP and UDP-Lite
   // Places of the others in a word.
   enum Field : std::uint8_t { proto = 0, dscp = 8, tcpFlags = 16, icmpType = 24, icmpCode = 32 };
   static constexpr std::uint64_t kHasPorts = std::uint64_t( 1 ) << 40;
   static constexpr std::uint64_t kHasIcmp = std::uint64_t( 1 ) << 41;

   std::uint64_t addresses = 0; // source, destination
   std::uint64_t fields = 0;    // what is not there is zero
   std::array< std::uint16_t, kRanged > ranged{};

   static RuleKey of( const Ipv4Header & header, const Packet & packet );

   Ipv4Addr src() const { return { std::uint32_t( addresses >> 32 ) }; }
   Ipv4Addr dst() const { return { std::uint32_t( addresses ) }; }
   std::uint8_t field( Field of ) const { return std::uint8_t( fields >> of ); }

   // As a search takes it: digits of four bits, two in a byte. Of source and destination, protocol, ports, DSCP, TCP
   // flags, ICMP type; what is not there is zero.
   static constexpr std::size_t kDigits = 32;
   void bytes( std::uint8_t * at ) const;
};

struct RuleRange {
   std::uint16_t lower = 0;
   std::uint16_t upper = 65535;

   bool any() const { return lower == 0 && upper == 65535; }
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

   bool matches( const RuleKey & key ) const {
      if ( ( key.addresses & addressMask_ ) != addresses_ || ( key.fields & fieldMask_ ) != fields_ ) return false;
      unsigned outside = 0;
      for ( std::size_t i = 0; i < key.ranged.size(); ++i )
         outside |= std::uint16_t( key.ranged[ i ] - lowest_[ i ] ) > width_[ i ];
      return outside == 0;
   }
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
   // What matches() compares, out of what stands below. Bits outside of a mask are zero.
   std::uint64_t addressMask_, addresses_;
   std::uint64_t fieldMask_ = 0, fields_ = 0;
   std::array< std::uint16_t, RuleKey::kRanged > lowest_, width_;

   std::uint32_t src_, srcMask_, dst_, dstMask_; // bits outside of a mask are zero
   RuleRange sport_, dport_, len_, ttl_;
   std::uint16_t icmpType_, icmpCode_;
   std::uint8_t proto_;    // 0: any
   std::uint8_t tcpFlags_; // all of these are set, whatever the others are
   std::uint8_t dscp_;
};

} // namespace Vexdp
