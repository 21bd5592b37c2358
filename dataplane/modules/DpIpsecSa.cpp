#include "DpIpsecSa.h"

#include <google/protobuf/descriptor.h>
#include <google/protobuf/util/message_differencer.h>

#include <algorithm>
#include <cerrno>
#include <vector>

namespace Vexdp {

using Entry = IpsecSa::Entry;

namespace {

constexpr std::uint32_t kInet = 2; // AF_INET
constexpr std::uint32_t kTunnelMode = 1;
constexpr std::uint32_t kTransportMode = 2;

struct Algorithm {
   std::uint32_t value;
   const char * name;
   std::vector< std::uint32_t > keyBits; // the lengths that it takes
   std::vector< std::uint32_t > icvLens; // bytes; one that isn't told is the first
};
using Algorithms = std::vector< Algorithm >;

// AES-CBC is of RFC 3602, AES-GCM of RFC 4106 with a salt of 32 bits in its key, the null cipher of RFC 2410.
const Algorithms & ciphers() {
   static const Algorithms all = {
        { std::uint32_t( IpsecCipher::null ), "the null cipher", { 0 }, {} },
        { std::uint32_t( IpsecCipher::aesGcm ), "AES-GCM", { 160, 224, 288 }, { 16, 12, 8 } },
        { std::uint32_t( IpsecCipher::aesCbc ), "AES-CBC", { 128, 192, 256 }, {} } };
   return all;
}

// HMAC-SHA1-96 is of RFC 2404, HMAC-SHA-256-128 of RFC 4868.
const Algorithms & auths() {
   static const Algorithms all = { { std::uint32_t( IpsecAuth::none ), "no authentication", { 0 }, { 0 } },
                                   { std::uint32_t( IpsecAuth::sha1 ), "HMAC-SHA1-96", { 160 }, { 12 } },
                                   { std::uint32_t( IpsecAuth::sha256 ), "HMAC-SHA256-128", { 256 }, { 16 } } };
   return all;
}

const Algorithm * find( const Algorithms & algorithms, std::uint32_t value ) {
   const auto at = std::ranges::find( algorithms, value, &Algorithm::value );
   return at == algorithms.end() ? nullptr : &*at;
}

// Of one that check() has let in.
const Algorithm & cipherOf( const Entry & entry ) { return *find( ciphers(), entry.cipher_algorithm() ); }
const Algorithm & authOf( const Entry & entry ) { return *find( auths(), entry.auth_algorithm() ); }
const Algorithm & icvAlgorithmOf( const Entry & entry ) {
   return cipherOf( entry ).icvLens.empty() ? authOf( entry ) : cipherOf( entry );
}

Outcome requireOneOf( const char * field, std::uint32_t value, const std::vector< std::uint32_t > & values,
                      const char * unit, const char * algorithm ) {
   if ( std::ranges::find( values, value ) != values.end() ) return {};
   return refuse( EINVAL, "{} {} is not {} {}, which {} takes", field, value, fmt::join( values, " or " ), unit,
                  algorithm );
}

struct Key {
   const char * field;
   const char * lenField;
   const std::string & bytes;
   std::uint32_t bits;
};

Outcome requireKey( const Key & key, const Algorithm & algorithm ) {
   if ( auto out = requireOneOf( key.lenField, key.bits, algorithm.keyBits, "bits", algorithm.name ); !out.ok() )
      return out;
   if ( key.bytes.size() == key.bits / 8 ) return {};
   return refuse( EINVAL, "{} has {} bytes instead of the {} of {} bits", key.field, key.bytes.size(), key.bits / 8,
                  key.bits );
}

Outcome checkAlgorithms( const Entry & entry ) {
   const auto * cipher = find( ciphers(), entry.cipher_algorithm() );
   if ( cipher == nullptr ) return refuse( EINVAL, "cipher_algorithm {} is unknown", entry.cipher_algorithm() );
   const auto * auth = find( auths(), entry.auth_algorithm() );
   if ( auth == nullptr ) return refuse( EINVAL, "auth_algorithm {} is unknown", entry.auth_algorithm() );
   const bool gcm = !cipher->icvLens.empty();
   const bool authenticates = entry.auth_algorithm() != std::uint32_t( IpsecAuth::none );
   if ( gcm && authenticates ) return refuse( EINVAL, "{} authenticates, and {} beside it", cipher->name, auth->name );
   if ( !authenticates && entry.cipher_algorithm() == std::uint32_t( IpsecCipher::null ) )
      return refuse( EINVAL, "it neither encrypts nor authenticates" );
   if ( auto out =
             requireKey( { "crypto_info", "crypto_info_len", entry.crypto_info(), entry.crypto_info_len() }, *cipher );
        !out.ok() )
      return out;
   if ( auto out = requireKey( { "auth_info", "auth_info_len", entry.auth_info(), entry.auth_info_len() }, *auth );
        !out.ok() )
      return out;
   if ( gcm && !entry.has_icv_len() ) return refuse( EINVAL, "icv_len is missing" );
   const auto & icv = icvAlgorithmOf( entry );
   return entry.has_icv_len() ? requireOneOf( "icv_len", entry.icv_len(), icv.icvLens, "bytes", icv.name ) : Outcome();
}

Outcome checkAddresses( const Entry & entry ) {
   if ( entry.has_family() && entry.family() != kInet )
      return refuse( EINVAL, "family {} is not IPv4", entry.family() );
   if ( entry.proto() != kProtoEsp ) return refuse( EINVAL, "proto {} is not ESP, {}", entry.proto(), kProtoEsp );
   if ( entry.src_addr() == 0 || entry.dst_addr() == 0 )
      return refuse( EINVAL, "from {} to {} is no way", Ipv4Addr{ entry.src_addr() }, Ipv4Addr{ entry.dst_addr() } );
   if ( entry.encap_type() > 1 ) return refuse( EINVAL, "encap_type {} is unknown", entry.encap_type() );
   if ( entry.encap_type() == 0 ) return {};
   if ( entry.encap_src_port() == 0 || entry.encap_dst_port() == 0 )
      return refuse( EINVAL, "UDP encapsulation has no ports" );
   if ( auto out = requireAtMost( "encap_src_port", entry.encap_src_port(), 65535 ); !out.ok() ) return out;
   return requireAtMost( "encap_dst_port", entry.encap_dst_port(), 65535 );
}

Outcome checkFields( const Entry & entry ) {
   if ( auto out = requireFields( { { entry.has_proto(), "proto" },
                                    { entry.has_flags(), "flags" },
                                    { entry.has_src_addr(), "src_addr" },
                                    { entry.has_dst_addr(), "dst_addr" },
                                    { entry.has_cipher_algorithm(), "cipher_algorithm" },
                                    { entry.has_auth_algorithm(), "auth_algorithm" },
                                    { entry.has_encap_type(), "encap_type" } } );
        !out.ok() )
      return out;
   if ( entry.sa_type() != 0 ) return refuse( EINVAL, "sa_type {} is unknown", entry.sa_type() );
   if ( entry.flags() != kTunnelMode && entry.flags() != kTransportMode )
      return refuse( EINVAL, "flags {} are neither tunnel mode, {}, nor transport mode, {}", entry.flags(), kTunnelMode,
                     kTransportMode );
   if ( auto out = requireAtMost( "tunnel_type", entry.tunnel_type(), 2 ); !out.ok() ) return out;
   return requireAtMost( "replay_window", entry.replay_window(), IpsecSa::kMaxReplayWindow );
}

std::size_t icvLenOf( const Entry & entry ) {
   return entry.has_icv_len() ? entry.icv_len() : icvAlgorithmOf( entry ).icvLens.front();
}

// Field by field: a key that is copied and cleared stays behind in the memory of the copy. All other fields are
// numbers.
Entry withoutKeys( const Entry & entry ) {
   Entry told;
   const auto & reflection = *Entry::GetReflection();
   std::vector< const google::protobuf::FieldDescriptor * > fields;
   reflection.ListFields( entry, &fields );
   for ( const auto * field : fields )
      if ( field->cpp_type() == google::protobuf::FieldDescriptor::CPPTYPE_UINT32 )
         reflection.SetUInt32( &told, field, reflection.GetUInt32( entry, field ) );
   return told;
}

} // namespace

Outcome inSa( std::uint32_t spi, const Outcome & out ) {
   return refuse( out.refusal().code, "SA {:#010x}: {}", spi, out.refusal().reason );
}

Outcome IpsecSa::check( const Entry & entry ) {
   if ( auto out = requireFields( { { entry.has_sa_spi(), "saentries.sa_spi" } } ); !out.ok() ) return out;
   if ( entry.sa_spi() <= kMaxReservedSpi )
      return refuse( EINVAL, "sa_spi {} is reserved, as all up to {}", entry.sa_spi(), kMaxReservedSpi );
   for ( const auto & part : { checkFields, checkAddresses, checkAlgorithms } )
      if ( const auto out = part( entry ); !out.ok() ) return inSa( entry.sa_spi(), out );
   return {};
}

IpsecSa::IpsecSa( const Entry & entry, std::uint32_t encapId, SaDirection direction, SaHistory & history,
                  OuterIds & ids, unsigned workers ) :
     entry_( withoutKeys( entry ) ),
     encapId_( encapId ), icvLen_( icvLenOf( entry ) ), cipherKey_( entry.crypto_info() ),
     authKey_( entry.auth_info() ), use_( history.of( direction, entry ) ),
     ids_( ids.of( src(), dst(), udp() ? kProtoUdp : kProtoEsp ) ),
     session_( { cipher(), auth(), cipherKey_.span(), authKey_.span() }, workers ) {}

// What nobody has authenticated moves no window: a forged packet would shut it.
std::uint32_t IpsecSa::windowSize() const {
   const bool authenticates = cipher() == IpsecCipher::aesGcm || auth() != IpsecAuth::none;
   return authenticates ? entry_.replay_window() : 0;
}

ReplayWindow & IpsecSa::replay() {
   use_->replay.sizeIs( windowSize() );
   return use_->replay;
}

bool IpsecSa::wouldAdmit( std::uint32_t sequence ) const {
   auto window = use_->replay;
   window.sizeIs( windowSize() );
   return window.admits( sequence );
}

bool IpsecSa::is( const Entry & entry ) const {
   return google::protobuf::util::MessageDifferencer::Equals( entry_, withoutKeys( entry ) ) &&
          cipherKey_.is( entry.crypto_info() ) && authKey_.is( entry.auth_info() );
}

bool IpsecSa::tunnelMode() const { return entry_.flags() == kTunnelMode; }

std::string IpsecSa::desc() const {
   const char * name = cipherOf( entry_ ).name;
   switch ( cipher() ) {
   case IpsecCipher::null: return fmt::format( "{}, {}", name, authOf( entry_ ).name );
   case IpsecCipher::aesCbc:
      return fmt::format( "{} of {} bits, {}", name, entry_.crypto_info_len(), authOf( entry_ ).name );
   case IpsecCipher::aesGcm: break;
   }
   return fmt::format( "{} of {} bits with its salt", name, entry_.crypto_info_len() );
}

} // namespace Vexdp
