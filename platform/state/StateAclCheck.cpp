#include "StateAclCheck.h"

#include <algorithm>
#include <bit>

namespace Acl {

namespace {

constexpr U8 protoIcmp = 1;
constexpr U8 protoTcp = 6;

// TCP, UDP, DCCP, SCTP and UDP-Lite.
bool hasPorts( U8 proto ) {
   constexpr U8 protos[] = { protoTcp, 17, 33, 132, 136 };
   return std::ranges::find( protos, proto ) != std::end( protos );
}

// Collects what is wrong with one rule.
class RuleCheck {
 public:
   RuleCheck( Gant::String object, const IpFilter & filter, Problems & problems ) :
        object_( std::move( object ) ), filter_( filter ), problems_( problems ) {}

   void run() {
      checkNumbers( "source port", filter_.sourcePort() );
      checkNumbers( "destination port", filter_.destinationPort() );
      checkNumbers( "length", filter_.ipLen() );
      checkProtocol();
      checkLimits();
      checkSize();
      noteWhatIsIgnored();
   }

 private:
   void error( Gant::String text ) { problems_.push_back( { Problem::Severity::error, object_, std::move( text ) } ); }
   void note( Gant::String text ) { problems_.push_back( { Problem::Severity::note, object_, std::move( text ) } ); }

   void checkNumbers( const char * what, const RangeSpec & numbers ) {
      const auto & values = numbers.values();
      const bool several = numbers.oper() == RangeOper::eq_ || numbers.oper() == RangeOper::neq_;
      const size_t wanted = numbers.isAny() ? 0 : numbers.oper() == RangeOper::range_ ? 2 : 1;
      if ( several ? values.empty() : values.size() != wanted )
         error( Gant::textsOf( what, " ", numbers, ": wrong number of values" ) );
      else if ( numbers.oper() == RangeOper::range_ && values[ 0 ] > values[ 1 ] )
         error( Gant::textsOf( what, " ", numbers, ": the range is upside down" ) );
      else if ( numbers.ranges().empty() )
         error( Gant::textsOf( what, " ", numbers, ": no number matches" ) );
   }

   void checkProtocol() {
      const bool ports = !filter_.sourcePort().isAny() || !filter_.destinationPort().isAny();
      if ( ports && !hasPorts( filter_.proto() ) )
         error( Gant::textsOf( "protocol ", U32( filter_.proto() ), " has no ports" ) );
      if ( filter_.tcpFlags() != 0 && filter_.proto() != protoTcp ) error( "flags are those of TCP only" );
      const bool icmp = filter_.icmpType() != icmpAny || filter_.icmpCode() != icmpAny;
      if ( icmp && filter_.proto() != protoIcmp ) error( "an ICMP type or code needs protocol icmp" );
      const bool transport = ports || icmp || filter_.tcpFlags() != 0;
      if ( transport && filter_.fragments() ) error( "fragments have neither ports, nor flags, nor an ICMP type" );
   }

   void checkLimits() {
      if ( filter_.matchDscp() && filter_.dscp() > 63 )
         error( Gant::textsOf( "DSCP ", U32( filter_.dscp() ), " is above 63" ) );
      if ( filter_.icmpType() != icmpAny && filter_.icmpType() > 255 )
         error( Gant::textsOf( "ICMP type ", filter_.icmpType(), " is above 255" ) );
      if ( filter_.icmpCode() != icmpAny && filter_.icmpCode() > 255 )
         error( Gant::textsOf( "ICMP code ", filter_.icmpCode(), " is above 255" ) );
      if ( filter_.icmpCode() != icmpAny && filter_.icmpType() == icmpAny ) error( "an ICMP code needs a type" );
   }

   void checkSize() {
      const auto flags = std::max( 1, std::popcount( filter_.tcpFlags() ) );
      const auto records = filter_.sourcePort().ranges().size() * filter_.destinationPort().ranges().size() *
                           filter_.ipLen().ranges().size() * static_cast< size_t >( flags );
      if ( records > subrulesMax )
         error( Gant::textsOf( "it takes ", records, " records, the most is ", subrulesMax ) );
   }

   void noteWhatIsIgnored() {
      if ( filter_.fragments() ) note( "fragments: the rule is accepted, and this data plane does not apply it" );
      const auto oper = filter_.ttl().oper();
      if ( oper != RangeOper::any_ && oper != RangeOper::eq_ )
         note( Gant::textsOf( "ttl ", oper, " ", U32( filter_.ttl().ttl() ), ": this data plane matches any TTL" ) );
   }

   Gant::String object_;
   const IpFilter & filter_;
   Problems & problems_;
};

bool haveCommon( const RangeSpec & a, const RangeSpec & b ) {
   if ( a.isAny() || b.isAny() ) return true;
   const auto ours = a.ranges(), theirs = b.ranges();
   return std::ranges::any_of( ours, [ & ]( const auto & range ) {
      return std::ranges::any_of(
           theirs, [ & ]( const auto & other ) { return range.first <= other.second && other.first <= range.second; } );
   } );
}

bool haveCommon( const Kynet::IpAddrWithFullMask & a, const Kynet::IpAddrWithFullMask & b ) {
   return ( ( a.address().value() ^ b.address().value() ) & a.mask() & b.mask() ) == 0;
}

// Whether there is a packet that both match. A packet may have several TCP flags.
bool haveCommon( const IpFilter & a, const IpFilter & b ) {
   const auto same = []( U32 ours, U32 theirs, U32 any ) { return ours == theirs || ours == any || theirs == any; };
   const auto ttlOf = []( const IpFilter & filter ) {
      return filter.ttl().oper() == RangeOper::eq_ ? U32( filter.ttl().ttl() ) : ~0U;
   };
   const auto dscpOf = []( const IpFilter & filter ) { return filter.matchDscp() ? U32( filter.dscp() ) : ~0U; };
   return same( a.proto(), b.proto(), 0 ) && haveCommon( a.source(), b.source() ) &&
          haveCommon( a.destination(), b.destination() ) && same( a.icmpType(), b.icmpType(), icmpAny ) &&
          same( a.icmpCode(), b.icmpCode(), icmpAny ) && same( ttlOf( a ), ttlOf( b ), ~0U ) &&
          same( dscpOf( a ), dscpOf( b ), ~0U ) && haveCommon( a.sourcePort(), b.sourcePort() ) &&
          haveCommon( a.destinationPort(), b.destinationPort() ) && haveCommon( a.ipLen(), b.ipLen() );
}

} // namespace

bool hasError( const Problems & problems ) {
   return std::ranges::any_of( problems,
                               []( const auto & problem ) { return problem.severity == Problem::Severity::error; } );
}

Problems validate( const ListKey & key, const Entries & entries ) {
   const auto object = "access-list " + key.name();
   if ( key.type() == ipv6 )
      return { { Problem::Severity::error, object, "this data plane has no IPv6 access lists" } };
   if ( key.type() == mac )
      return { { Problem::Severity::note, object, "MAC rules are accepted, and this data plane does not apply them" } };
   Problems problems;
   for ( const auto & [ sequence, entry ] : entries )
      if ( !entry.isRemark )
         RuleCheck( Gant::textsOf( object, ", sequence ", sequence ), entry.rule.filter(), problems ).run();
   return problems;
}

Problems deniesLeftOut( const Gant::String & object, const ListKey & key, const Entries & entries ) {
   Problems problems;
   const auto applies = []( const Entry & entry, ActionType action ) {
      return !entry.isRemark && !entry.rule.filter().fragments() && entry.rule.action() == action;
   };
   for ( auto at = entries.begin(); at != entries.end(); ++at ) {
      if ( !applies( at->second, deny ) ) continue;
      const auto permits = std::find_if( std::next( at ), entries.end(), [ & ]( const auto & later ) {
         return applies( later.second, permit ) && haveCommon( at->second.rule.filter(), later.second.rule.filter() );
      } );
      if ( permits != entries.end() )
         problems.push_back( { Problem::Severity::note, object,
                               Gant::textsOf( "access-list ", key.name(), ": what sequence ", at->first,
                                              " denies is of the class where sequence ", permits->first,
                                              " permits it: a deny takes nothing out of a class" ) } );
   }
   return problems;
}

} // namespace Acl

namespace Qos {

namespace {

using Severity = Acl::Problem::Severity;

constexpr size_t classesMax = 255;

void checkActions( const Gant::String & object, const PolicyClass::Actions & actions, Acl::Problems & problems ) {
   const auto check = [ & ]( U32 value, U32 most, const char * what ) {
      if ( value > most )
         problems.push_back( { Severity::error, object, Gant::textsOf( what, " ", value, " is above ", most ) } );
   };
   for ( const auto & [ action, value ] : actions ) switch ( action ) {
      case ActionType::actionSetDscp_: check( value, Dscp::max, "set dscp" ); break;
      case ActionType::actionSetTc_: check( value, trafficClassMax, "set traffic-class" ); break;
      default: problems.push_back( { Severity::error, object, "this data plane sets DSCP and traffic class only" } );
      }
}

void checkLists( const Gant::String & object, const ClassMapConfig & classMap, const Acl::ConfigBase & aclConfig,
                 Acl::Problems & problems ) {
   for ( const auto & name : classMap.accessLists ) {
      const auto & list = aclConfig.aclConfig( Acl::ListKey( Acl::ip, name ) );
      if ( !list )
         problems.push_back( { Severity::error, object, "there is no access-list " + name } );
      else
         std::ranges::copy( Acl::validate( list->key(), list->entries() ), std::back_inserter( problems ) );
   }
}

} // namespace

Acl::Problems validate( const Gant::String & name, const ClassMapConfig & classMap ) {
   const auto object = "class-map " + name;
   const auto error = [ & ]( const char * text ) { return Acl::Problems{ { Severity::error, object, text } }; };
   switch ( classMap.matchOption ) {
   case ClassMapMatchOption::matchIpAccessGroup_: break;
   case ClassMapMatchOption::matchIpv6AccessGroup_: return error( "this data plane has no IPv6 access lists" );
   case ClassMapMatchOption::matchVlan_: return error( "this data plane does not match a VLAN in a class" );
   default: return error( "it matches nothing" );
   }
   if ( classMap.accessLists.empty() ) return error( "it matches nothing" );
   auto lists = classMap.accessLists;
   std::ranges::sort( lists );
   if ( std::ranges::adjacent_find( lists ) != lists.end() ) return error( "an access-list stands in it twice" );
   return {};
}

Acl::Problems validate( const Gant::String & name, const PolicyMapConfig & policyMap, const Status & status,
                        const Acl::ConfigBase & aclConfig ) {
   const auto object = "policy-map " + name;
   Acl::Problems problems;
   if ( policyMap.classes.empty() ) problems.push_back( { Severity::error, object, "it has no class" } );
   if ( policyMap.classes.size() > classesMax )
      problems.push_back( { Severity::error, object, Gant::textsOf( "it has more than ", classesMax, " classes" ) } );
   Gant::OrderedSet< Gant::String > seen;
   for ( const auto & policyClass : policyMap.classes ) {
      const auto classObject = object + ", class " + policyClass.name;
      if ( !seen.insert( policyClass.name ).second )
         problems.push_back( { Severity::error, classObject, "the class stands in it twice" } );
      checkActions( classObject, policyClass.actions, problems );
      if ( policyClass.name == classDefault ) continue;
      if ( !status.classMapHas( policyClass.name ) ) {
         problems.push_back( { Severity::error, classObject, "there is no such class-map" } );
         continue;
      }
      const auto & classMap = status.classMap( policyClass.name );
      std::ranges::copy( validate( policyClass.name, classMap ), std::back_inserter( problems ) );
      checkLists( classObject, classMap, aclConfig, problems );
   }
   return problems;
}

} // namespace Qos
