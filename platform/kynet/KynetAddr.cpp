#include "KynetAddr.h"

#include <algorithm>
#include <arpa/inet.h>
#include <charconv>
#include <cstring>

namespace Kynet {

namespace {

// A text of this length or more is none that inet_pton takes.
constexpr size_t textMax = INET6_ADDRSTRLEN;

template < typename Raw >
bool parse( int family, std::string_view text, Raw & raw ) {
   char buffer[ textMax ];
   if ( text.size() >= sizeof( buffer ) ) return false;
   std::memcpy( buffer, text.data(), text.size() );
   buffer[ text.size() ] = '\0';
   return std::strlen( buffer ) == text.size() && inet_pton( family, buffer, &raw ) == 1;
}

struct Parts {
   std::string_view address;
   U8 len;
};

std::optional< Parts > parts( std::string_view text ) {
   const auto slash = text.find( '/' );
   if ( slash == std::string::npos ) return std::nullopt;
   const auto digits = text.substr( slash + 1 );
   U8 len = 0;
   const auto [ end, error ] = std::from_chars( digits.data(), digits.data() + digits.size(), len );
   if ( error != std::errc() || end != digits.data() + digits.size() ) return std::nullopt;
   return Parts{ text.substr( 0, slash ), len };
}

// A value whose text form is its usual text, inside another one.
template < typename T >
void fromBare( Gant::StrepReader & in, T & value, const char * what ) {
   const auto text = in.bare();
   const auto read = T::fromString( text );
   if ( !read ) in.fail( what, text );
   value = *read;
}

} // namespace

Gant::String IpAddr::stringValue() const {
   return Gant::format( "%u.%u.%u.%u", value() >> 24, value() >> 16 & 255, value() >> 8 & 255, value() & 255 );
}

void IpAddr::strepIs( Gant::StrepReader & in ) { fromBare( in, *this, "an IPv4 address" ); }

std::optional< IpAddr > IpAddr::fromString( std::string_view text ) {
   U32 raw;
   if ( !parse( AF_INET, text, raw ) ) return std::nullopt;
   return IpAddr( ntohl( raw ) );
}

size_t Ip6Addr::hash() const {
   U64 words[ 2 ];
   std::memcpy( words, bytes_.data(), sizeof( words ) );
   return Gant::Hash().word( words[ 0 ] ).word( words[ 1 ] ).value();
}

Gant::String Ip6Addr::stringValue() const {
   char text[ INET6_ADDRSTRLEN ];
   return inet_ntop( AF_INET6, bytes_.data(), text, sizeof( text ) );
}

void Ip6Addr::strepIs( Gant::StrepReader & in ) { fromBare( in, *this, "an IPv6 address" ); }

std::optional< Ip6Addr > Ip6Addr::fromString( std::string_view text ) {
   Bytes bytes;
   if ( !parse( AF_INET6, text, bytes ) ) return std::nullopt;
   return Ip6Addr( bytes );
}

IpGenAddr::IpGenAddr( IpAddr addr ) {
   const U32 raw = htonl( addr.value() );
   std::memcpy( bytes_.data(), &raw, sizeof( raw ) );
}

IpAddr IpGenAddr::v4Addr() const {
   U32 raw;
   std::memcpy( &raw, bytes_.data(), sizeof( raw ) );
   return IpAddr( ntohl( raw ) );
}

size_t IpGenAddr::hash() const {
   if ( af_ == AddressFamily::ipv4_ ) return Gant::Hash().word( v4Addr().value() ).value();
   return Ip6Addr( bytes_ ).hash();
}

Gant::String IpGenAddr::stringValue() const {
   return af_ == AddressFamily::ipv4_ ? v4Addr().stringValue() : v6Addr().stringValue();
}

void IpGenAddr::strepIs( Gant::StrepReader & in ) { fromBare( in, *this, "an IP address" ); }

std::optional< IpGenAddr > IpGenAddr::fromString( std::string_view text ) {
   if ( const auto v4 = IpAddr::fromString( text ) ) return IpGenAddr( *v4 );
   if ( const auto v6 = Ip6Addr::fromString( text ) ) return IpGenAddr( *v6 );
   return std::nullopt;
}

Gant::String Prefix::stringValue() const { return address_.stringValue() + "/" + std::to_string( len_ ); }

void Prefix::strepIs( Gant::StrepReader & in ) { fromBare( in, *this, "an IPv4 prefix" ); }

std::optional< Prefix > Prefix::fromString( std::string_view text ) {
   const auto part = parts( text );
   if ( !part || part->len > 32 ) return std::nullopt;
   const auto address = IpAddr::fromString( part->address );
   if ( !address ) return std::nullopt;
   return Prefix( *address, part->len );
}

bool Ip6Prefix::canonical() const {
   for ( size_t bit = len_; bit < 128; ++bit )
      if ( address_.bytes()[ bit / 8 ] & 0x80 >> bit % 8 ) return false;
   return true;
}

Gant::String Ip6Prefix::stringValue() const { return address_.stringValue() + "/" + std::to_string( len_ ); }

void Ip6Prefix::strepIs( Gant::StrepReader & in ) { fromBare( in, *this, "an IPv6 prefix" ); }

std::optional< Ip6Prefix > Ip6Prefix::fromString( std::string_view text ) {
   const auto part = parts( text );
   if ( !part || part->len > 128 ) return std::nullopt;
   const auto address = Ip6Addr::fromString( part->address );
   if ( !address ) return std::nullopt;
   return Ip6Prefix( *address, part->len );
}

Gant::String IpGenPrefix::stringValue() const { return addr_.stringValue() + "/" + std::to_string( len_ ); }

void IpGenPrefix::strepIs( Gant::StrepReader & in ) { fromBare( in, *this, "an IP prefix" ); }

std::optional< IpGenPrefix > IpGenPrefix::fromString( std::string_view text ) {
   if ( const auto v4 = Prefix::fromString( text ) ) return IpGenPrefix( *v4 );
   if ( const auto v6 = Ip6Prefix::fromString( text ) ) return IpGenPrefix( *v6 );
   return std::nullopt;
}

size_t EthAddr::hash() const {
   U64 word = 0;
   std::memcpy( &word, bytes_.data(), bytes_.size() );
   return Gant::Hash().word( word ).value();
}

Gant::String EthAddr::stringValue() const {
   return Gant::format( "%02x:%02x:%02x:%02x:%02x:%02x", bytes_[ 0 ], bytes_[ 1 ], bytes_[ 2 ], bytes_[ 3 ],
                        bytes_[ 4 ], bytes_[ 5 ] );
}

void EthAddr::strepIs( Gant::StrepReader & in ) { fromBare( in, *this, "an Ethernet address" ); }

std::optional< EthAddr > EthAddr::fromString( std::string_view text ) {
   if ( text.size() != 17 ) return std::nullopt;
   Bytes bytes;
   for ( size_t i = 0; i < bytes.size(); ++i ) {
      const char * const at = text.data() + 3 * i;
      const auto [ end, error ] = std::from_chars( at, at + 2, bytes[ i ], 16 );
      if ( error != std::errc() || end != at + 2 || ( i < 5 && *end != ':' ) ) return std::nullopt;
   }
   return EthAddr( bytes );
}

} // namespace Kynet
