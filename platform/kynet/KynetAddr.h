// Addresses and prefixes, with their usual text forms. Every fromString gives nothing for a text that is not one.
#pragma once

#include "GantEnum.h"
#include "GantValue.h"

#include <array>
#include <optional>
#include <string_view>

namespace Kynet {

GANT_ENUM( AddressFamily, U8, ( addressFamilyUnknown, 0 ), ( ipv4, 1 ), ( ipv6, 2 ) )

// An IPv4 address; its value is in host byte order.
class IpAddr {
   GANT_SCALAR_VALUE( IpAddr, U32, 0 )
   explicit constexpr IpAddr( U32 value ) : value_( value ) {}
   // Dotted quad.
   Gant::String stringValue() const;
   Gant::String strep() const { return stringValue(); }
   void strepIs( Gant::StrepReader & in );
   static std::optional< IpAddr > fromString( std::string_view text );
};

// An IPv6 address, in network byte order. Its text is that of RFC 5952.
class Ip6Addr {
 public:
   using Bytes = std::array< U8, 16 >;
   Ip6Addr() = default;
   explicit Ip6Addr( const Bytes & bytes ) : bytes_( bytes ) {}
   const Bytes & bytes() const { return bytes_; }
   bool operator!() const { return bytes_ == Bytes{}; }
   friend bool operator==( const Ip6Addr &, const Ip6Addr & ) = default;
   friend auto operator<=>( const Ip6Addr &, const Ip6Addr & ) = default;
   size_t hash() const;
   Gant::String stringValue() const;
   Gant::String strep() const { return stringValue(); }
   void strepIs( Gant::StrepReader & in );
   static std::optional< Ip6Addr > fromString( std::string_view text );

 private:
   Bytes bytes_{};
};

// An address of either family.
class IpGenAddr {
 public:
   IpGenAddr() = default;
   IpGenAddr( IpAddr addr );
   IpGenAddr( const Ip6Addr & addr ) : af_( AddressFamily::ipv6_ ), bytes_( addr.bytes() ) {}
   AddressFamily af() const { return af_; }
   IpAddr v4Addr() const;
   Ip6Addr v6Addr() const { return Ip6Addr( bytes_ ); }
   friend bool operator==( const IpGenAddr &, const IpGenAddr & ) = default;
   friend bool operator<( const IpGenAddr & a, const IpGenAddr & b ) {
      return a.af_ != b.af_ ? a.af_ < b.af_ : a.bytes_ < b.bytes_;
   }
   size_t hash() const;
   Gant::String stringValue() const;
   Gant::String strep() const { return stringValue(); }
   void strepIs( Gant::StrepReader & in );
   static std::optional< IpGenAddr > fromString( std::string_view text );

 private:
   AddressFamily af_ = AddressFamily::ipv4_;
   Ip6Addr::Bytes bytes_{}; // of IPv4 the first four
};

// An IPv4 prefix. The host bits are kept as given; `canonical` tells whether they are clear.
class Prefix {
 public:
   constexpr Prefix() = default;
   // `len` from 0 to 32.
   constexpr Prefix( IpAddr address, U8 len ) : address_( address ), len_( len ) {}
   constexpr IpAddr address() const { return address_; }
   constexpr U8 len() const { return len_; }
   constexpr U32 mask() const { return len_ == 0 ? 0 : ~U32( 0 ) << ( 32 - len_ ); }
   constexpr bool canonical() const { return ( address_.value() & ~mask() ) == 0; }
   constexpr bool contains( IpAddr addr ) const { return ( ( addr.value() ^ address_.value() ) & mask() ) == 0; }
   friend constexpr bool operator==( Prefix a, Prefix b ) = default;
   friend constexpr auto operator<=>( Prefix a, Prefix b ) = default;
   size_t hash() const { return Gant::Hash().word( U64( address_.value() ) << 8 | len_ ).value(); }
   // "10.0.0.0/8"
   Gant::String stringValue() const;
   Gant::String strep() const { return stringValue(); }
   void strepIs( Gant::StrepReader & in );
   static std::optional< Prefix > fromString( std::string_view text );

 private:
   IpAddr address_;
   U8 len_ = 0;
};

// An IPv6 prefix.
class Ip6Prefix {
 public:
   Ip6Prefix() = default;
   // `len` from 0 to 128.
   Ip6Prefix( const Ip6Addr & address, U8 len ) : address_( address ), len_( len ) {}
   const Ip6Addr & address() const { return address_; }
   U8 len() const { return len_; }
   bool canonical() const;
   friend bool operator==( const Ip6Prefix &, const Ip6Prefix & ) = default;
   friend auto operator<=>( const Ip6Prefix &, const Ip6Prefix & ) = default;
   size_t hash() const { return ( Gant::Hash() << address_ << len_ ).value(); }
   Gant::String stringValue() const;
   Gant::String strep() const { return stringValue(); }
   void strepIs( Gant::StrepReader & in );
   static std::optional< Ip6Prefix > fromString( std::string_view text );

 private:
   Ip6Addr address_;
   U8 len_ = 0;
};

// A prefix of either family.
class IpGenPrefix {
 public:
   IpGenPrefix() = default;
   IpGenPrefix( Prefix prefix ) : addr_( prefix.address() ), len_( prefix.len() ) {}
   IpGenPrefix( const Ip6Prefix & prefix ) : addr_( prefix.address() ), len_( prefix.len() ) {}
   AddressFamily af() const { return addr_.af(); }
   U8 len() const { return len_; }
   Prefix v4Prefix() const { return Prefix( addr_.v4Addr(), len_ ); }
   Ip6Prefix v6Prefix() const { return Ip6Prefix( addr_.v6Addr(), len_ ); }
   friend bool operator==( const IpGenPrefix &, const IpGenPrefix & ) = default;
   friend bool operator<( const IpGenPrefix & a, const IpGenPrefix & b ) {
      return a.addr_ == b.addr_ ? a.len_ < b.len_ : a.addr_ < b.addr_;
   }
   size_t hash() const { return ( Gant::Hash() << addr_ << len_ ).value(); }
   Gant::String stringValue() const;
   Gant::String strep() const { return stringValue(); }
   void strepIs( Gant::StrepReader & in );
   static std::optional< IpGenPrefix > fromString( std::string_view text );

 private:
   IpGenAddr addr_;
   U8 len_ = 0;
};

// An Ethernet address. All zero means that there is none.
class EthAddr {
 public:
   using Bytes = std::array< U8, 6 >;
   constexpr EthAddr() = default;
   explicit constexpr EthAddr( const Bytes & bytes ) : bytes_( bytes ) {}
   static constexpr EthAddr ethAddrZero() { return EthAddr(); }
   constexpr const Bytes & bytes() const { return bytes_; }
   constexpr bool operator!() const { return *this == EthAddr(); }
   friend constexpr bool operator==( const EthAddr &, const EthAddr & ) = default;
   friend constexpr auto operator<=>( const EthAddr &, const EthAddr & ) = default;
   size_t hash() const;
   bool multicast() const { return ( bytes_[ 0 ] & 1 ) != 0; }
   // "00:1c:73:00:00:01"
   Gant::String stringValue() const;
   Gant::String strep() const { return stringValue(); }
   void strepIs( Gant::StrepReader & in );
   static std::optional< EthAddr > fromString( std::string_view text );

 private:
   Bytes bytes_{};
};

class EthAddrWithMask {
   GANT_VALUE( "Kynet::EthAddrWithMask", EthAddrWithMask, ( EthAddr, addr ), ( EthAddr, mask ) )
};

// An IPv4 address and a mask that need not be contiguous.
class IpAddrWithFullMask {
   GANT_VALUE( "Kynet::IpAddrWithFullMask", IpAddrWithFullMask, ( IpAddr, address ), ( U32, mask ) )
};

class Port {
   GANT_SCALAR( Port, U16, 0 )
};

class IpAndPort {
   GANT_VALUE( "Kynet::IpAndPort", IpAndPort, ( IpAddr, ip ), ( Port, port ) )
};

// A connection as its packets name it.
class ConnTuple {
   GANT_VALUE( "Kynet::ConnTuple", ConnTuple, ( U8, proto ), ( IpAndPort, src ), ( IpAndPort, dst ) )
};

// The name of a network namespace, which is also that of its VRF.
class NamespaceName {
 public:
   NamespaceName() = default;
   explicit NamespaceName( Gant::String value ) : value_( std::move( value ) ) {}
   static NamespaceName defaultNamespace() { return NamespaceName( "default" ); }
   const Gant::String & value() const { return value_; }
   friend bool operator==( const NamespaceName &, const NamespaceName & ) = default;
   friend auto operator<=>( const NamespaceName &, const NamespaceName & ) = default;
   size_t hash() const { return Gant::hashOf( value_ ); }
   const Gant::String & stringValue() const { return value_; }
   Gant::String strep() const { return Gant::strepQuoted( value_ ); }
   void strepIs( Gant::StrepReader & in ) { value_ = in.quoted(); }

 private:
   Gant::String value_;
};

} // namespace Kynet
