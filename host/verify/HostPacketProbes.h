// The packets that meet each route, list rule, policy class, tunnel and inbound association.
#pragma once

#include "HostFateModel.h"
#include "HostSortedRuns.h"
#include "StateIpsec.h"

#include <deque>
#include <memory>

namespace Host {

constexpr U32 benchmarkSource = 0xc6120001; // 198.18.0.1 (RFC 2544)

// A packet, and the object that it is to meet.
struct PacketProbe {
   std::string object;
   Kynet::IntfId in{};
   FatePacket packet{};
   // Of a tunnel's packet that comes from its other end: what is behind the outer header, what comes out of it, and the
   // tunnels of which it enters one.
   std::string payload{};
   std::vector< Kynet::IntfId > tunnels{};
   FatePacket inner{};
   // That has it sealed.
   struct Association {
      Gant::Name connection;
      Ipsec::Ike::SecurityAssociation sa;
   };
   std::optional< Association > association{};
};
// What it was made for is still told.
bool isThere( const FateModel & model, const PacketProbe & probe );
// What may become of it.
std::vector< PacketFate > fatesOf( const FateModel & model, const PacketProbe & probe,
                                   std::vector< FateMet > * met = nullptr );

// Objects that no packet was found to meet.
class NotMet {
 public:
   explicit NotMet( size_t most ) : most_( most ) {}
   void add( const std::string & object, const std::string & why );
   U64 count() const { return count_; }
   const std::vector< std::pair< std::string, std::string > > & kept() const { return kept_; } // the first `most`

 private:
   const size_t most_;
   U64 count_ = 0;
   std::vector< std::pair< std::string, std::string > > kept_;
};

// Destinations that were found to lead somewhere, for packets that need one: some of each VRF that leave, and some by
// each interface and tunnel.
class Destinations {
 public:
   void note( U32 vrf, U32 dst, const std::vector< PacketFate > & fates, const std::vector< FateMet > & met );
   const std::vector< U32 > & ofVrf( U32 vrf ) const { return of( vrfs_, vrf ); }
   const std::vector< U32 > & by( Kynet::IntfId intfId ) const { return of( intfs_, intfId ); }

 private:
   template < typename Map >
   static const std::vector< U32 > & of( const Map & map, const typename Map::key_type & key ) {
      static const std::vector< U32 > none;
      const auto at = map.find( key );
      return at == map.end() ? none : at->second;
   }
   std::map< U32, std::vector< U32 > > vrfs_;
   std::map< Kynet::IntfId, std::vector< U32 > > intfs_;
};

// What the sources of packets share. It outlives them.
struct ProbeScope {
   ProbeScope( const RouterState & state, size_t most ) : model( state ), notMet( most ) {}
   const FateModel model;
   NotMet notMet;
   Destinations destinations;

   // An interface of the VRF that takes the packet in; none: there is none.
   Kynet::IntfId ingress( U32 vrf, const FatePacket & packet );
   // The same for any packet with that destination: it may become one that the interface's list permits.
   Kynet::IntfId admit( U32 vrf, FatePacket & packet );

 private:
   bool takes( Kynet::IntfId in, const FatePacket & packet ) const;
   bool permitted( Kynet::IntfId in, FatePacket & packet ) const;
   const std::vector< Kynet::IntfId > & ingresses( U32 vrf );

   std::map< U32, FatePacket > admitted_;                    // the last one, by VRF
   std::map< U32, std::vector< Kynet::IntfId > > ingresses_; // the best first
};

// One kind of objects after the other. Each call is short.
class ProbeSource {
 public:
   enum class Got { probe, nothing, end }; // nothing: call again
   virtual ~ProbeSource() = default;
   virtual Got next( PacketProbe & probe ) = 0;
   virtual const char * what() const = 0; // "packets of routes"
};
std::unique_ptr< ProbeSource > routeProbes( ProbeScope & scope );
std::unique_ptr< ProbeSource > ruleProbes( ProbeScope & scope );
std::unique_ptr< ProbeSource > classProbes( ProbeScope & scope );
std::unique_ptr< ProbeSource > tunnelProbes( ProbeScope & scope );
std::unique_ptr< ProbeSource > associationProbes( ProbeScope & scope );

} // namespace Host
