// IpsecManagement: the crypto devices and the security associations that the IPsec modules work with. Packets never
// come here.
//
// Associations are kept by VRF, connection and direction, and each update replaces those of one key whole. One that is
// there already, the same in every field and key, goes on. One with the same SPI and key, whatever else has changed and
// whether it was there or not, takes up the sequence numbers where they were left (DpSaHistory.h).
#pragma once

#include "DpIpsecSa.h"
#include "DpModule.h"

#include <absl/container/flat_hash_map.h>

#include <map>
#include <memory>
#include <vector>

namespace Vexdp {

class IpsecManagement : public Module {
 public:
   // When the init message doesn't say.
   static constexpr std::uint32_t kDefaultSas = 1024;
   static constexpr std::uint32_t kMaxSas = 1u << 16;

   static const ModuleClass & moduleClass();
   // `max_ipsec_policies` sizes nothing: there are no policies.
   static Outcome check( const vex::pb::IpsecManagementArg & init );
   IpsecManagement( Identity identity, const vex::pb::IpsecManagementArg & init );

   // Brings a device up: "crypto_openssl", or "crypto_null" for the null cipher. EEXIST: it is up. ENOENT: there is no
   // such driver. ERANGE: it would have no queue or no session.
   Outcome initVirtDevice( const vex::pb::IpsecInitVirtCryptoPMDArg & arg );
   // Replaces the associations of a key, or leaves all as they are. What IpsecSa::check refuses. ENODEV: a device that
   // their algorithms need isn't up. EEXIST: an SPI twice among them, or inbound in another connection. ENOSPC: more
   // than `max_ipsec_sas`, or than a device's `max_nb_sessions`.
   Outcome updateIpsecSas( const vex::pb::IpsecUpdateSAArg & arg );
   // Takes all of a key away; it need have none.
   Outcome deleteIpsecSas( const vex::pb::IpsecDeleteSAArg & arg );

   // The newest of the connection; null when there is none.
   IpsecSa * outbound( std::uint32_t vrf, std::uint32_t encapId ) const;
   // The newest of a connection in transport mode, from and to the addresses; null when there is none. Of several
   // connections the first by VRF and id has the packets.
   IpsecSa * outboundTransport( Ipv4Addr src, Ipv4Addr dst ) const;
   // By what its packets carry; null when there is none.
   IpsecSa * inbound( std::uint32_t spi, Ipv4Addr dst ) const;
   // Whether an inbound association is for bare ESP between the addresses.
   bool bareEnd( Ipv4Addr src, Ipv4Addr dst ) const { return ends_.contains( { src.value, dst.value } ); }
   // Whether an inbound association is for ESP in UDP to the port.
   bool udpEnd( Ipv4Addr dst, std::uint16_t port ) const { return udpEnds_.contains( { dst.value, port } ); }
   // The same for fragments, which don't all have a port: from the association's source.
   bool udpEndOf( Ipv4Addr src, Ipv4Addr dst ) const { return udpPairs_.contains( { src.value, dst.value } ); }
   bool hasUdp() const { return !udpEnds_.empty(); }

   Fate process( Packet & packet, Context & context ) override;
   CommandSource commands() const override;
   std::string desc() const override;

 private:
   struct Key {
      std::uint32_t vrf = 0;
      std::uint32_t encapId = 0;
      SaDirection direction = SaDirection::outbound;
      friend auto operator<=>( const Key &, const Key & ) = default;
   };
   using Sas = std::vector< std::shared_ptr< IpsecSa > >;
   using SpiAndDst = std::pair< std::uint32_t, std::uint32_t >;
   struct Device {
      vex::pb::IpsecInitVirtCryptoPMDArg arg;
      std::uint32_t sessions = 0;
   };
   using Sessions = std::map< std::string, std::uint32_t >; // by device

   template < class Arg >
   static Outcome keyOf( const Arg & arg, Key & key );
   Outcome requireUnique( const Key & key, const vex::pb::IpsecUpdateSAArg & arg ) const;
   Outcome requireRoom( const Key & key, const vex::pb::IpsecUpdateSAArg & arg ) const;
   const Sas & sasOf( const Key & key ) const;
   void replace( const Key & key, Sas sas );
   void countEnd( const IpsecSa & sa, bool comes );
   // What outboundTransport() finds of the key, as it is now.
   void noteTransport( const Key & key, bool comes );

   const std::uint32_t maxSas_;
   std::map< std::string, Device > devices_;
   std::map< Key, Sas > sas_;
   absl::flat_hash_map< SpiAndDst, std::pair< Key, IpsecSa * > > inbound_;
   // By source and destination.
   absl::flat_hash_map< std::pair< std::uint32_t, std::uint32_t >, std::map< Key, IpsecSa * > > transports_;
   // Inbound associations by what they are for: source and destination, or destination and UDP port.
   using Ends = absl::flat_hash_map< std::pair< std::uint32_t, std::uint32_t >, unsigned >;
   Ends ends_;
   Ends udpEnds_;
   Ends udpPairs_; // by source and destination
   std::size_t count_ = 0;
};

} // namespace Vexdp
