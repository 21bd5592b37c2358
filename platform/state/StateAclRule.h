// What a rule of an access list says.
#pragma once

#include "GantEnum.h"
#include "GantValue.h"
#include "KynetAddr.h"

#include <compare>
#include <utility>
#include <vector>

namespace Acl {

// A version of a list, or the identity of a rule over the versions of its list.
class UniqueId {
   GANT_VALUE( "Acl::UniqueId", UniqueId, ( U32, number ), ( U16, series ), ( U16, source ) )
   // Of the rule that ends a list, which nobody wrote.
   static UniqueId allOnes() { return UniqueId( 0xffffffff, 0xffff, 0xffff ); }
};

// One that this process has not given before.
UniqueId newUniqueId();

GANT_ENUM( ActionType, U8, ( deny, 0 ), ( permit, 1 ) )
inline constexpr auto deny = ActionType::deny_;
inline constexpr auto permit = ActionType::permit_;

GANT_ENUM( RangeOper, U8, ( any, 0 ), ( eq, 1 ), ( neq, 2 ), ( gt, 3 ), ( lt, 4 ), ( range, 5 ) )
inline constexpr auto eq = RangeOper::eq_;

// Numbers of 16 bits: ports or lengths. eq and neq take one or more of them, gt and lt one, range the two ends.
class RangeSpec {
 public:
   using Values = std::vector< U16 >;
   using Ranges = std::vector< std::pair< U16, U16 > >;

   RangeSpec() = default;
   RangeSpec( RangeOper oper, Values values ) : oper_( oper ), values_( std::move( values ) ) {}
   RangeOper oper() const { return oper_; }
   const Values & values() const { return values_; }
   bool isAny() const { return oper_ == RangeOper::any_; }
   // The numbers as disjoint ranges that do not touch, in ascending order. None when nothing matches, which also is so
   // of a range upside down.
   Ranges ranges() const;

   friend bool operator==( const RangeSpec &, const RangeSpec & ) = default;
   friend auto operator<=>( const RangeSpec &, const RangeSpec & ) = default;
   size_t hash() const;
   // "eq 80 443"
   Gant::String stringValue() const;
   Gant::String strep() const { return Gant::strepQuoted( stringValue() ); }
   void strepIs( Gant::StrepReader & in );

 private:
   RangeOper oper_;
   Values values_;
};

class TtlSpec {
   GANT_VALUE( "Acl::TtlSpec", TtlSpec, ( RangeOper, oper ), ( U8, ttl ) )
};

inline constexpr U16 icmpAny = 65535;

// TCP flags, by their bits in the header (RFC 9293).
enum TcpFlag : U8 { tcpFin = 1, tcpSyn = 2, tcpRst = 4, tcpPsh = 8, tcpAck = 16, tcpUrg = 32 };

// What a packet must be. The defaults match everything.
class IpFilter {
   GANT_VALUE( "Acl::IpFilter", IpFilter, ( U8, proto ),                  // 0: any
               ( Kynet::IpAddrWithFullMask, source ),                     // a bit that is set in the mask must match
               ( Kynet::IpAddrWithFullMask, destination ),                //
               ( RangeSpec, sourcePort ), ( RangeSpec, destinationPort ), //
               ( U8, tcpFlags ),                                       // one of them must be set; 0: whatever they are
               ( bool, fragments ),                                    // a fragment behind the first
               ( TtlSpec, ttl ), ( bool, matchDscp ), ( U8, dscp ),    //
               ( U16, icmpType, icmpAny ), ( U16, icmpCode, icmpAny ), //
               ( RangeSpec, ipLen ) )                                  // total length, bytes
};

class RuleConfig {
   GANT_VALUE( "Acl::RuleConfig", RuleConfig, ( ActionType, action ), ( bool, log ), ( IpFilter, filter ) )
};
using IpRuleConfig = RuleConfig;

class MacRuleConfig {
   GANT_VALUE( "Acl::MacRuleConfig", MacRuleConfig, ( ActionType, action ), ( bool, log ),
               ( Kynet::EthAddrWithMask, source ), ( Kynet::EthAddrWithMask, destination ), ( U16, etherType ) )
};

} // namespace Acl
