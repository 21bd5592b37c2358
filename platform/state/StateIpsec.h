// IPsec: the connections that the key exchange has agreed upon, with their security associations.
#pragma once

#include "GantEntity.h"
#include "GantEnum.h"
#include "GantValue.h"
#include "KynetAddr.h"
#include "KynetIntfId.h"

#include <deque>
#include <optional>
#include <string_view>

namespace Ipsec::Ike {

GANT_ENUM( EncapIdType, U8, ( IpsecGre, 0 ), // the GRE packets of a tunnel
           ( IpsecVti, 1 ) )                 // whatever is routed into a tunnel

// Names a connection within its VRF.
class EncapId {
   GANT_VALUE( "Ipsec::Ike::EncapId", EncapId, ( U32, reqid ), ( EncapIdType, type ) )
};

// Secret bytes. However many objects hold them, there is one copy, which is overwritten when the last one goes. The
// text form is the length, and there is no way back from it.
class KeyMaterial {
 public:
   KeyMaterial() = default;
   // Copies the bytes; the caller cleanses its own.
   explicit KeyMaterial( std::string_view bytes );
   std::string_view bytes() const { return bytes_ ? bytes_->value : std::string_view(); }
   friend bool operator==( const KeyMaterial & a, const KeyMaterial & b ) { return a.bytes() == b.bytes(); }
   friend auto operator<=>( const KeyMaterial & a, const KeyMaterial & b ) { return a.bytes() <=> b.bytes(); }
   size_t hash() const { return Gant::hashOf( bytes().size() ); }
   // "<16 bytes>"
   Gant::String stringValue() const { return "<" + std::to_string( bytes().size() ) + " bytes>"; }
   Gant::String strep() const { return stringValue(); }
   void strepIs( Gant::StrepReader & in );

 private:
   struct Bytes : Gant::PtrInterface {
      explicit Bytes( std::string_view bytes ) : value( bytes ) {}
      ~Bytes() override;
      std::string value;
   };
   Gant::Ptr< const Bytes > bytes_;
};

// Names a security association, as its packets do (RFC 4301, 4.1).
class SaId {
   GANT_VALUE( "Ipsec::Ike::SaId", SaId, ( U32, spi ), ( Kynet::IpGenAddr, daddr ), ( U8, proto ) )
};

class SaKey {
   // `family` is the socket's address family: 2 for IPv4.
   GANT_VALUE( "Ipsec::Ike::SaKey", SaKey, ( SaId, id ), ( U16, family ) )
};

GANT_ENUM( SaMode, U8, ( IPSEC_TRANSPORT_MODE, 0 ), ( IPSEC_TUNNEL_MODE, 1 ) )

// One direction of a connection: what its packets are wrapped in and protected with. Algorithms go by the kernel's
// names: "aes" (CBC), "rfc4106(gcm(aes))", "cipher_null"; "sha1", "hmac(sha256)". Lengths are in bits, `replay_window`
// in packets. `encapType` 1 is UDP between the two ports (RFC 3948), 0 none.
class SecurityAssociation {
   GANT_VALUE_FIELDS( "Ipsec::Ike::SecurityAssociation", SecurityAssociation, ( SaKey, sakey ),
                      ( Kynet::IpGenAddr, saddr ), ( U32, replay_window ), ( SaMode, mode, SaMode::IPSEC_TUNNEL_MODE_ ),
                      ( Gant::String, cryptoAlgo ), ( KeyMaterial, cryptoKey ), ( U16, cryptoKeyLen ),
                      ( Gant::String, authAlgo ), ( KeyMaterial, authKey ), ( U16, authKeyLen ), ( U16, icvLen ),
                      ( U16, encapType ), ( U16, encapSrcPort ), ( U16, encapDstPort ) )
   GANT_VALUE_COMPARE( SecurityAssociation )
   GANT_VALUE_HASH()

   // When it was agreed upon, in seconds of the activity clock; no part of what it is.
   double agreedAt() const { return agreedAt_; }
   void agreedAtIs( double time ) { agreedAt_ = time; }

 private:
   double agreedAt_ = 0;
};

class SaqMetadata {
   GANT_VALUE( "Ipsec::Ike::SaqMetadata", SaqMetadata, ( U32, headIndex ), ( U32, tailIndex ) )
};

// The inbound associations of a connection, from the oldest, at the head, to the newest, at the tail: while a rekey
// goes on the peer may use either.
class SecurityAssociationQueue {
 public:
   using Saqs = std::deque< SecurityAssociation >;

   void saqEnq( SecurityAssociation sa ) { saqs_.push_back( std::move( sa ) ); }
   // Drops the oldest; there is one.
   void saqDeq();
   size_t saqs() const { return saqs_.size(); }
   // Of a queue that is not empty.
   SaqMetadata saqMetadata() const { return SaqMetadata( head_, head_ + static_cast< U32 >( saqs() ) - 1 ); }
   // `index` from the head to the tail.
   const SecurityAssociation & saq( U32 index ) const { return saqs_[ index - head_ ]; }
   Saqs::const_iterator begin() const { return saqs_.begin(); }
   Saqs::const_iterator end() const { return saqs_.end(); }
   // Associations that `former` has too are as old as they are there.
   void agesFrom( const SecurityAssociationQueue & former );
   friend bool operator==( const SecurityAssociationQueue & a, const SecurityAssociationQueue & b ) {
      return a.saqs_ == b.saqs_;
   }

 private:
   Saqs saqs_;
   U32 head_ = 0;
};

// The tunnel interfaces of a connection.
class IntfList {
 public:
   using Intfs = Gant::OrderedSet< Kynet::IntfId >;
   GANT_SET( Intfs, intf )
   bool intf( Kynet::IntfId intfId ) const { return intfHas( intfId ); }
   Intfs::const_iterator begin() const { return intfIterator().begin(); }
   Intfs::const_iterator end() const { return intfIterator().end(); }
   friend bool operator==( const IntfList & a, const IntfList & b ) { return a.intf_ == b.intf_; }
};

class ConnectionKey {
   GANT_VALUE( "Ipsec::Ike::ConnectionKey", ConnectionKey, ( Kynet::NamespaceName, vrfName ), ( EncapId, encapId ) )
};

class Connection {
 public:
   // As its user calls it.
   GANT_ATTR( Gant::Name, name )
   GANT_ATTR( IntfList, intfList )
   GANT_ATTR( SecurityAssociationQueue, inSaq )
   GANT_ATTR( std::optional< SecurityAssociation >, outSa )
   // For a connection that is to take the place of `former`.
   void agesFrom( const Connection & former );
   friend bool operator==( const Connection &, const Connection & ) = default;
};

class Status : public Gant::Entity {
 public:
   using Entity::Entity;
};

// A change of a connection is written as the whole connection. Keys stay here as long as the connection does: a new
// data plane is fed from here.
class ConnectionTable : public Gant::Entity {
 public:
   using Connections = Gant::OrderedMap< ConnectionKey, Connection >;
   class Notifiee : public Gant::NotifieeOf< ConnectionTable > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onConnection( const ConnectionKey & ) {}
   };
   GANT_NOTIFIER( Notifiee )
   using Entity::Entity;
   GANT_WATCHED_MAP( Connections, connection, onConnection )
};

} // namespace Ipsec::Ike

namespace Ipsec::Capabilities {

class Status : public Gant::Entity {
 public:
   using Entity::Entity;
   GANT_ATTR( bool, ipsecSupported, false )
};

} // namespace Ipsec::Capabilities
