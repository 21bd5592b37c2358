#include "DpIpsecManagement.h"

#include "DpGraph.h"
#include "DpModuleClass.h"
#include "DpWalk.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <set>

namespace Vexdp {

using namespace vex::pb;
using Entry = IpsecSa::Entry;

namespace {

constexpr const char * kOpenSsl = "crypto_openssl";
constexpr const char * kNull = "crypto_null";

bool isDriver( const std::string & name ) { return name == kOpenSsl || name == kNull; }

// The devices on which an association takes a session.
std::vector< std::string > devicesOf( const Entry & entry ) {
   const bool encrypts = entry.cipher_algorithm() != std::uint32_t( IpsecCipher::null );
   const bool authenticates = entry.auth_algorithm() != std::uint32_t( IpsecAuth::none );
   std::vector< std::string > devices;
   if ( !encrypts ) devices.emplace_back( kNull );
   if ( encrypts || authenticates ) devices.emplace_back( kOpenSsl );
   return devices;
}

Outcome requireSome( const char * field, bool present, std::uint32_t value ) {
   if ( !present ) return refuse( EINVAL, "{} is missing", field );
   return value == 0 ? refuse( ERANGE, "{} 0 leaves no room", field ) : Outcome();
}

} // namespace

const ModuleClass & IpsecManagement::moduleClass() {
   static const ModuleClass self = shared( describe< IpsecManagement, IpsecManagementArg >(
        "IpsecManagement", "crypto devices and security associations", { .igates = 0, .ogates = 0 },
        { command< &IpsecManagement::initVirtDevice >( "initVirtDevice" ),
          command< &IpsecManagement::updateIpsecSas >( "updateIpsecSAs" ),
          command< &IpsecManagement::deleteIpsecSas >( "deleteIpsecSAs" ) } ) );
   return self;
}

Outcome IpsecManagement::check( const IpsecManagementArg & init ) {
   if ( init.has_max_ipsec_sas() && init.max_ipsec_sas() == 0 )
      return refuse( ERANGE, "max_ipsec_sas 0 leaves no room" );
   return requireAtMost( "max_ipsec_sas", init.max_ipsec_sas(), kMaxSas );
}

IpsecManagement::IpsecManagement( Identity identity, const IpsecManagementArg & init ) :
     Module( std::move( identity ) ), maxSas_( init.has_max_ipsec_sas() ? init.max_ipsec_sas() : kDefaultSas ) {}

Outcome IpsecManagement::initVirtDevice( const IpsecInitVirtCryptoPMDArg & arg ) {
   const auto & name = arg.crypto_dev_name();
   if ( auto out = requireFields( { { arg.has_crypto_dev_name(), "crypto_dev_name" } } ); !out.ok() ) return out;
   if ( !isDriver( name ) ) return refuse( ENOENT, "there is no crypto driver \"{}\"", name );
   if ( devices_.contains( name ) ) return refuse( EEXIST, "crypto device {} is up already", name );
   if ( auto out = requireSome( "max_nb_queue_pairs", arg.has_max_nb_queue_pairs(), arg.max_nb_queue_pairs() );
        !out.ok() )
      return out;
   if ( auto out = requireSome( "max_nb_sessions", arg.has_max_nb_sessions(), arg.max_nb_sessions() ); !out.ok() )
      return out;
   if ( arg.has_socket_id() && arg.socket_id() < -1 )
      return refuse( ERANGE, "socket_id {} is out of range, at least -1, which is any", arg.socket_id() );
   devices_.emplace( name, Device{ arg } );
   return {};
}

template < class Arg >
Outcome IpsecManagement::keyOf( const Arg & arg, Key & key ) {
   key = { arg.vrf(), arg.encap_id(), SaDirection( arg.sa_direction() ) };
   if ( auto out = requireFields( { { arg.has_vrf(), "vrf" },
                                    { arg.has_encap_id(), "encap_id" },
                                    { arg.has_sa_direction(), "sa_direction" } } );
        !out.ok() )
      return out;
   return requireAtMost( "sa_direction", arg.sa_direction(), std::uint32_t( SaDirection::inbound ) );
}

Outcome IpsecManagement::updateIpsecSas( const IpsecUpdateSAArg & arg ) {
   Key key;
   if ( auto out = keyOf( arg, key ); !out.ok() ) return out;
   if ( auto out = requireFields( { { arg.saentries_size() > 0, "saentries" } } ); !out.ok() ) return out;
   for ( const auto & entry : arg.saentries() )
      if ( auto out = IpsecSa::check( entry ); !out.ok() ) return out;
   if ( auto out = requireUnique( key, arg ); !out.ok() ) return out;
   if ( auto out = requireRoom( key, arg ); !out.ok() ) return out;

   Sas sas;
   for ( const auto & entry : arg.saentries() ) {
      const auto & before = sasOf( key );
      const auto same = std::ranges::find_if( before, [ &entry ]( const auto & sa ) { return sa->is( entry ); } );
      sas.push_back( same == before.end()
                          ? std::make_shared< IpsecSa >( entry, key.encapId, key.direction, graph().kept< SaHistory >(),
                                                         graph().kept< OuterIds >(), graph().workers() )
                          : *same );
   }
   replace( key, std::move( sas ) );
   return {};
}

Outcome IpsecManagement::deleteIpsecSas( const IpsecDeleteSAArg & arg ) {
   Key key;
   if ( auto out = keyOf( arg, key ); !out.ok() ) return out;
   replace( key, {} );
   return {};
}

// An outbound SPI is the choice of its receiver, and unique only there.
Outcome IpsecManagement::requireUnique( const Key & key, const IpsecUpdateSAArg & arg ) const {
   std::set< SpiAndDst > told;
   for ( const auto & entry : arg.saentries() ) {
      const SpiAndDst id( entry.sa_spi(), entry.dst_addr() );
      if ( !told.insert( id ).second )
         return refuse( EEXIST, "SA {:#010x} to {} is told twice", id.first, Ipv4Addr{ id.second } );
      if ( key.direction == SaDirection::outbound ) continue;
      const auto at = inbound_.find( id );
      if ( at == inbound_.end() || at->second.first == key ) continue;
      const auto & other = at->second.first;
      return refuse( EEXIST, "SA {:#010x} to {} is of connection {} in VRF {}", id.first, Ipv4Addr{ id.second },
                     other.encapId, other.vrf );
   }
   return {};
}

Outcome IpsecManagement::requireRoom( const Key & key, const IpsecUpdateSAArg & arg ) const {
   const auto & before = sasOf( key );
   const auto wanted = std::size_t( arg.saentries_size() );
   if ( count_ - before.size() + wanted > maxSas_ )
      return refuse( ENOSPC, "no room for the {} SAs of connection {} in VRF {}, the table has {} of {}", wanted,
                     key.encapId, key.vrf, count_, maxSas_ );
   Sessions freed, taken;
   for ( const auto & sa : before )
      for ( const auto & device : devicesOf( sa->entry() ) ) ++freed[ device ];
   for ( const auto & entry : arg.saentries() ) {
      for ( const auto & device : devicesOf( entry ) ) {
         const auto at = devices_.find( device );
         if ( at == devices_.end() )
            return inSa( entry.sa_spi(), refuse( ENODEV, "crypto device {} is not up", device ) );
         if ( at->second.sessions - freed[ device ] + ++taken[ device ] > at->second.arg.max_nb_sessions() )
            return inSa( entry.sa_spi(), refuse( ENOSPC, "crypto device {} has {} of {} sessions", device,
                                                 at->second.sessions, at->second.arg.max_nb_sessions() ) );
      }
   }
   return {};
}

const IpsecManagement::Sas & IpsecManagement::sasOf( const Key & key ) const {
   static const Sas none;
   const auto at = sas_.find( key );
   return at == sas_.end() ? none : at->second;
}

void IpsecManagement::replace( const Key & key, Sas sas ) {
   const bool inbound = key.direction == SaDirection::inbound;
   noteTransport( key, false );
   for ( const auto & sa : sasOf( key ) ) {
      for ( const auto & device : devicesOf( sa->entry() ) ) --devices_.at( device ).sessions;
      if ( inbound ) {
         inbound_.erase( SpiAndDst( sa->spi(), sa->dst().value ) );
         countEnd( *sa, false );
      }
      --count_;
   }
   for ( const auto & sa : sas ) {
      for ( const auto & device : devicesOf( sa->entry() ) ) ++devices_.at( device ).sessions;
      if ( inbound ) {
         inbound_.emplace( SpiAndDst( sa->spi(), sa->dst().value ), std::pair( key, sa.get() ) );
         countEnd( *sa, true );
      }
      ++count_;
   }
   if ( sas.empty() )
      sas_.erase( key );
   else
      sas_[ key ] = std::move( sas );
   noteTransport( key, true );
}

void IpsecManagement::noteTransport( const Key & key, bool comes ) {
   const auto & sas = sasOf( key );
   if ( key.direction != SaDirection::outbound || sas.empty() || sas.back()->tunnelMode() ) return;
   const auto & sa = *sas.back();
   const std::pair ends( sa.src().value, sa.dst().value );
   auto & keys = transports_[ ends ];
   if ( comes )
      keys.emplace( key, sas.back().get() );
   else
      keys.erase( key );
   if ( keys.empty() ) transports_.erase( ends );
}

void IpsecManagement::countEnd( const IpsecSa & sa, bool comes ) {
   const auto count = [ comes ]( Ends & ends, Ends::key_type end ) {
      if ( comes )
         ++ends[ end ];
      else if ( --ends[ end ] == 0 )
         ends.erase( end );
   };
   count( sa.udp() ? udpPairs_ : ends_, { sa.src().value, sa.dst().value } );
   if ( sa.udp() ) count( udpEnds_, { sa.dst().value, sa.entry().encap_dst_port() } );
}

IpsecSa * IpsecManagement::outbound( std::uint32_t vrf, std::uint32_t encapId ) const {
   const auto & sas = sasOf( { vrf, encapId, SaDirection::outbound } );
   return sas.empty() ? nullptr : sas.back().get();
}

IpsecSa * IpsecManagement::outboundTransport( Ipv4Addr src, Ipv4Addr dst ) const {
   const auto at = transports_.find( { src.value, dst.value } );
   return at == transports_.end() ? nullptr : at->second.begin()->second;
}

IpsecSa * IpsecManagement::inbound( std::uint32_t spi, Ipv4Addr dst ) const {
   const auto at = inbound_.find( SpiAndDst( spi, dst.value ) );
   return at == inbound_.end() ? nullptr : at->second.second;
}

Fate IpsecManagement::process( Packet &, Context & context ) {
   return context.drop( kNoCounter, "packets don't come here" );
}

CommandSource IpsecManagement::commands() const {
   std::vector< IpsecInitVirtCryptoPMDArg > devices;
   for ( const auto & [ name, device ] : devices_ ) devices.push_back( device.arg );
   std::vector< IpsecUpdateSAArg > updates;
   for ( const auto & [ key, sas ] : sas_ ) {
      auto & update = updates.emplace_back();
      update.set_vrf( key.vrf );
      update.set_encap_id( key.encapId );
      update.set_sa_direction( std::uint32_t( key.direction ) );
      for ( const auto & sa : sas ) *update.add_saentries() = sa->entry();
   }
   return [ devices = std::move( devices ), updates = std::move( updates ) ]( CommandSink & sink ) {
      for ( const auto & device : devices ) sink.command( "initVirtDevice", device );
      for ( const auto & update : updates ) sink.command( "updateIpsecSAs", update );
   };
}

std::string IpsecManagement::desc() const {
   std::string text = fmt::format( "{} of {} SAs", count_, maxSas_ );
   for ( const auto & [ name, device ] : devices_ )
      text += fmt::format( ", {} {} of {} sessions", name, device.sessions, device.arg.max_nb_sessions() );
   return text;
}

} // namespace Vexdp
