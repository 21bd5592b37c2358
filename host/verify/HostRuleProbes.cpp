// Packets that meet a rule of a list, or a class of a policy, and none before it.
#include "HostPacketProbes.h"

#include <algorithm>
#include <deque>
#include <random>

namespace Host {

namespace {

using Filters = std::vector< const Acl::IpFilter * >;

U32 within( const Kynet::IpAddrWithFullMask & wanted, U32 free ) {
   return ( wanted.address().value() & wanted.mask() ) | ( free & ~wanted.mask() );
}

// Values of a packet's fields that meet a filter, and of which some are likely to miss the filters before it.
class Candidates {
 public:
   static constexpr U8 icmp = FatePacket::icmp, tcp = FatePacket::tcp, udp = FatePacket::udp;

   Candidates( const Acl::IpFilter & filter, const Filters & before, const std::vector< U32 > & dsts ) :
        filter_( filter ) {
      addresses( src_, filter.source(), { benchmarkSource } );
      addresses( dst_, filter.destination(), dsts );
      ports( sport_, filter.sourcePort(), 49152 );
      ports( dport_, filter.destinationPort(), 7 );
      for ( const auto * const other : before ) aside( *other );
      protocols();
      for ( unsigned bit = 1; bit != 256; bit <<= 1 )
         if ( ( filter.tcpFlags() & bit ) != 0 ) flags_.push_back( U8( bit ) );
      if ( flags_.empty() )
         flags_ = { Acl::tcpAck, Acl::tcpSyn, 0, Acl::tcpFin, Acl::tcpRst, Acl::tcpPsh, Acl::tcpUrg };
      if ( filter.matchDscp() ) dscp_ = { filter.dscp() };
      if ( filter.ttl().oper() == Acl::eq ) ttl_ = { filter.ttl().ttl() };
      if ( filter.icmpType() != Acl::icmpAny ) type_ = { U8( filter.icmpType() ) };
      if ( filter.icmpCode() != Acl::icmpAny ) code_ = { U8( filter.icmpCode() ) };
      if ( !filter.ipLen().isAny() ) {
         length_.clear();
         ports( length_, filter.ipLen(), 0 );
      }
   }

   // The first is the plainest.
   FatePacket packet( bool plain ) {
      const auto pick = [ & ]( const auto & values ) {
         return values.empty() ? 0 : values[ plain ? 0 : ( random_() >> 8 ) % values.size() ];
      };
      FatePacket packet;
      packet.src = pick( src_ );
      packet.dst = pick( dst_ );
      packet.proto = U8( pick( proto_ ) );
      packet.sport = U16( pick( sport_ ) );
      packet.dport = U16( pick( dport_ ) );
      packet.dscp = U8( pick( dscp_ ) );
      packet.ttl = U8( pick( ttl_ ) );
      packet.length = U16( pick( length_ ) );
      if ( packet.proto == tcp ) packet.tcpFlags = U8( pick( flags_ ) );
      if ( packet.proto == icmp ) {
         packet.icmpType = U8( pick( type_ ) );
         packet.icmpCode = U8( pick( code_ ) );
      }
      return packet;
   }

 private:
   void addresses( std::vector< U32 > & to, const Kynet::IpAddrWithFullMask & wanted,
                   const std::vector< U32 > & hints ) {
      for ( const auto hint : hints ) to.push_back( within( wanted, hint ) );
      for ( const U32 free : { 1u, 0x0a000001u, 0x01010101u, 0xfefefefeu } ) to.push_back( within( wanted, free ) );
   }
   static void ports( std::vector< U16 > & to, const Acl::RangeSpec & spec, U16 plain ) {
      if ( spec.isAny() )
         to.insert( to.end(), { plain, 1, 80, 443, 65535 } );
      else
         for ( const auto & [ low, high ] : spec.ranges() )
            to.insert( to.end(), { low, high, U16( low / 2 + high / 2 ) } );
   }
   // Values right beside what the other filter takes.
   void aside( const Acl::IpFilter & other ) {
      const auto beside = []( std::vector< U32 > & to, const auto & wanted, const auto & taken ) {
         const auto changeable = taken.mask() & ~wanted.mask();
         if ( changeable != 0 )
            to.push_back( within( wanted, taken.address().value() ^ ( changeable & ( ~changeable + 1 ) ) ) );
      };
      beside( src_, filter_.source(), other.source() );
      beside( dst_, filter_.destination(), other.destination() );
      const auto besidePorts = []( std::vector< U16 > & to, const Acl::RangeSpec & taken ) {
         if ( !taken.isAny() )
            for ( const auto & [ low, high ] : taken.ranges() )
               to.insert( to.end(), { U16( low - 1 ), U16( high + 1 ) } );
      };
      besidePorts( sport_, other.sourcePort() );
      besidePorts( dport_, other.destinationPort() );
      if ( other.matchDscp() ) dscp_.push_back( U8( ( other.dscp() + 1 ) % 64 ) );
   }
   void protocols() {
      if ( filter_.proto() != 0 )
         proto_ = { filter_.proto() };
      else if ( filter_.tcpFlags() != 0 )
         proto_ = { tcp };
      else if ( filter_.icmpType() != Acl::icmpAny || filter_.icmpCode() != Acl::icmpAny )
         proto_ = { icmp };
      else if ( !filter_.sourcePort().isAny() || !filter_.destinationPort().isAny() )
         proto_ = { udp, tcp };
      else
         proto_ = { udp, tcp, icmp, 89, 253 };
   }

   const Acl::IpFilter & filter_;
   std::minstd_rand random_{ 1 };
   std::vector< U32 > src_, dst_;
   std::vector< U16 > sport_, dport_, length_{ 0 };
   std::vector< U8 > proto_, flags_, dscp_{ 0, 46 }, ttl_{ 64 }, type_{ 8, 0, 3 }, code_{ 0, 1 };
};

// A packet that meets what is wanted, and nothing else of its kind at the same place.
class Seeker {
 public:
   Seeker( ProbeScope & scope, FateMet wanted ) : scope_( scope ), wanted_( wanted ) {}

   // Headers that are longer than the packet make none.
   bool seek( const Acl::IpFilter & filter, const Filters & before, PacketProbe & probe ) {
      constexpr int tries = 96;
      Candidates candidates( filter, before, destinations() );
      for ( int n = 0; n < tries; ++n ) {
         probe.packet = candidates.packet( n == 0 );
         auto whole = probe.packet;
         whole.length = 0;
         if ( probe.packet.length != 0 && probe.packet.length < whole.size() ) continue;
         if ( comes( probe ) ) return true;
      }
      return false;
   }

 private:
   bool atIngress() const { return wanted_.kind == FateMet::Kind::listIn || wanted_.kind == FateMet::Kind::policy; }
   std::vector< U32 > destinations() const {
      const auto & fact = *scope_.model.intf( wanted_.intfId );
      if ( atIngress() ) return scope_.destinations.ofVrf( scope_.model.vrfOf( fact ) );
      auto dsts = scope_.destinations.by( wanted_.intfId );
      for ( const auto & address : fact.addresses )
         for ( const U32 other : { 1, 3, 66 } ) dsts.push_back( address.address().value() ^ other );
      return dsts;
   }
   bool comes( PacketProbe & probe ) {
      const auto & fact = *scope_.model.intf( wanted_.intfId );
      probe.in = atIngress() ? wanted_.intfId : scope_.ingress( scope_.model.vrfOf( fact ), probe.packet );
      if ( !probe.in ) return false;
      std::vector< FateMet > met;
      const auto fates = scope_.model.fates( probe.in, probe.packet, &met );
      // Where a flow may take several ways, it may not come by.
      return ( atIngress() || fates.size() == 1 ) && std::ranges::count( met, wanted_ ) != 0;
   }

   ProbeScope & scope_;
   const FateMet wanted_;
};

// Every rule of every list, where the list is applied.
class RuleProbes : public ProbeSource {
 public:
   explicit RuleProbes( ProbeScope & scope ) : scope_( scope ) {
      std::set< Gant::String > applied;
      for ( const auto & [ intfId, told ] : scope.model.state().intfBook().intfs() )
         for ( const bool in : { true, false } ) {
            const auto & name = in ? told.fact.filters.aclIn : told.fact.filters.aclOut;
            if ( name.empty() || !told.fact.enabled ) continue;
            applied.insert( name );
            due_.push_back( { name, intfId, in } );
         }
      for ( const auto & [ name, told ] : scope.model.state().aclBook().classMaps() )
         applied.insert( told.fact.config.accessLists.begin(), told.fact.config.accessLists.end() );
      for ( const auto & [ name, told ] : scope.model.state().aclBook().lists() )
         if ( !applied.contains( name ) ) scope.notMet.add( "access-list " + name, "no interface that is up has it" );
   }
   const char * what() const override { return "packets of list rules"; }

   Got next( PacketProbe & probe ) override {
      if ( due_.empty() ) return Got::end;
      const auto & at = due_.front();
      const auto * const list = scope_.model.list( at.name );
      const auto * const fact = scope_.model.intf( at.intfId );
      const bool there = list != nullptr && list->key.type() == Acl::ip && fact != nullptr;
      const auto rule = there ? list->entries.upper_bound( sequence_ ) : Acl::Entries::const_iterator();
      if ( !there || rule == list->entries.end() ) {
         due_.pop_front();
         sequence_ = 0;
         return Got::nothing;
      }
      sequence_ = rule->first;
      if ( rule->second.isRemark ) return Got::nothing;
      return of( at, *list, rule->second.rule.filter(), probe );
   }

 private:
   struct Applied {
      Gant::String name;
      Kynet::IntfId intfId;
      bool in;
   };

   Got of( const Applied & at, const AclFact & list, const Acl::IpFilter & filter, PacketProbe & probe ) {
      probe = { "access-list " + at.name + ", sequence " + std::to_string( sequence_ ) + ", " +
                ( at.in ? "in" : "out" ) + " on " + at.intfId.stringValue() };
      const auto why = whyNot( at, list, filter, probe );
      if ( why.empty() ) return Got::probe;
      scope_.notMet.add( probe.object, why );
      return Got::nothing;
   }
   std::string whyNot( const Applied & at, const AclFact & list, const Acl::IpFilter & filter, PacketProbe & probe ) {
      if ( filter.fragments() ) return "it is for fragments";
      Filters before;
      for ( const auto & [ sequence, entry ] : list.entries ) {
         if ( sequence >= sequence_ ) break;
         if ( entry.isRemark ) continue;
         if ( FateModel::covers( entry.rule.filter(), filter ) )
            return "sequence " + std::to_string( sequence ) + " matches all that it would";
         before.push_back( &entry.rule.filter() );
      }
      Seeker seeker( scope_, { at.in ? FateMet::Kind::listIn : FateMet::Kind::listOut, at.intfId, sequence_ } );
      return seeker.seek( filter, before, probe ) ? "" : "no packet was found that comes to it";
   }

   ProbeScope & scope_;
   std::deque< Applied > due_;
   U32 sequence_ = 0; // of the last one
};

// Every class of every policy, where the policy is applied.
class ClassProbes : public ProbeSource {
 public:
   explicit ClassProbes( ProbeScope & scope ) : scope_( scope ) {
      for ( const auto & [ intfId, told ] : scope.model.state().intfBook().intfs() )
         if ( told.fact.enabled && !told.fact.filters.policyIn.empty() ) due_.emplace_back( intfId, 0 );
   }
   const char * what() const override { return "packets of classes"; }

   Got next( PacketProbe & probe ) override {
      if ( due_.empty() ) return Got::end;
      auto & [ intfId, nextClass ] = due_.front();
      const auto * const fact = scope_.model.intf( intfId );
      const auto & policies = scope_.model.state().aclBook().policyMaps();
      const auto policy = fact == nullptr ? policies.end() : policies.find( fact->filters.policyIn );
      if ( policy == policies.end() || nextClass == policy->second.fact.config.classes.size() ) {
         due_.pop_front();
         return Got::nothing;
      }
      const auto & wanted = policy->second.fact.config.classes[ nextClass++ ];
      probe = { "policy-map " + policy->first + ", class " + wanted.name + ", on " + intfId.stringValue() };
      Seeker seeker( scope_, { FateMet::Kind::policy, intfId, 0, &wanted } );
      const auto rules = rulesOf( wanted );
      const auto before = earlier( policy->second.fact.config, wanted );
      for ( const auto * const rule : rules )
         if ( seeker.seek( *rule, before, probe ) ) return Got::probe;
      scope_.notMet.add( probe.object,
                         rules.empty() ? "its lists permit nothing" : "no packet was found that is of it" );
      return Got::nothing;
   }

 private:
   Filters rulesOf( const Qos::PolicyClass & policyClass ) const {
      static const Acl::IpFilter any;
      if ( policyClass.name == Qos::classDefault ) return { &any };
      Filters rules;
      const auto & maps = scope_.model.state().aclBook().classMaps();
      const auto map = maps.find( policyClass.name );
      if ( map == maps.end() ) return {};
      for ( const auto & name : map->second.fact.config.accessLists )
         if ( const auto * const list = scope_.model.list( name ); list != nullptr && list->key.type() == Acl::ip )
            for ( const auto & [ sequence, entry ] : list->entries )
               if ( !entry.isRemark && entry.rule.action() == Acl::permit ) rules.push_back( &entry.rule.filter() );
      return rules;
   }
   Filters earlier( const Qos::PolicyMapConfig & policy, const Qos::PolicyClass & wanted ) const {
      Filters before;
      for ( const auto & each : policy.classes ) {
         if ( &each == &wanted && wanted.name != Qos::classDefault ) break;
         if ( each.name == Qos::classDefault ) continue;
         for ( const auto * const rule : rulesOf( each ) ) before.push_back( rule );
      }
      return before;
   }

   ProbeScope & scope_;
   std::deque< std::pair< Kynet::IntfId, size_t > > due_;
};

} // namespace

bool ProbeScope::permitted( Kynet::IntfId in, FatePacket & packet ) const {
   constexpr int tries = 16;
   const auto * const fact = model.intf( in );
   const auto * const list = fact == nullptr ? nullptr : model.list( fact->filters.aclIn );
   if ( list == nullptr ) return false;
   for ( const auto & [ sequence, entry ] : list->entries ) {
      if ( entry.isRemark || entry.rule.action() != Acl::permit ) continue;
      Candidates candidates( entry.rule.filter(), {}, { packet.dst } );
      for ( int n = 0; n < tries; ++n ) {
         auto like = candidates.packet( n == 0 );
         like.dst = packet.dst;
         if ( !takes( in, like ) ) continue;
         packet = like;
         return true;
      }
   }
   return false;
}

std::unique_ptr< ProbeSource > ruleProbes( ProbeScope & scope ) { return std::make_unique< RuleProbes >( scope ); }
std::unique_ptr< ProbeSource > classProbes( ProbeScope & scope ) { return std::make_unique< ClassProbes >( scope ); }

} // namespace Host
