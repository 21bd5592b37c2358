// nat: address translations. A static one translates an address, a dynamic one what an access list permits.
#include "HostSection.h"

#include <charconv>
#include <variant>

namespace Host {

namespace {

using Ip::Nat::DynamicKey;
using Ip::Nat::DynamicRule;
using Ip::Nat::NatTarget;
using Ip::Nat::StaticConnection;
using Ip::Nat::StaticKey;

// What an entry says, by its key fields.
using NatKey = std::variant< StaticKey, DynamicKey >;

NatTarget targetOf( const Entry & entry ) {
   if ( !entry.has( "target" ) ) return NatTarget::source();
   const auto text = entry.at( "target" ).text( "a target" );
   if ( text == "source" ) return NatTarget::source();
   if ( text == "destination" ) return NatTarget::destination();
   entry.at( "target" ).fail( "target \"" + text + "\" is not source or destination" );
}

U8 protocolOf( const Entry & entry ) {
   if ( !entry.has( "protocol" ) ) return 0;
   const auto at = entry.at( "protocol" );
   const auto text = at.text( "a protocol" );
   if ( text == "tcp" ) return 6;
   if ( text == "udp" ) return 17;
   return static_cast< U8 >( at.number( "protocol", 0, 255 ) );
}

// ADDRESS or ADDRESS:PORT
Kynet::IpAndPort endOf( const Entry & entry, const char * key ) {
   const auto at = entry.at( key );
   const auto text = at.text( "an address" );
   const auto colon = text.find( ':' );
   const auto address = Kynet::IpAddr::fromString( text.substr( 0, colon ) );
   U16 port = 0;
   bool good = address.has_value();
   if ( colon != std::string::npos ) {
      const char * const end = text.data() + text.size();
      const auto [ stop, error ] = std::from_chars( text.data() + colon + 1, end, port );
      good = good && error == std::errc() && stop == end && port != 0;
   }
   if ( !good ) at.fail( std::string( key ) + " \"" + text + "\" is not an IPv4 address, alone or with :PORT" );
   return Kynet::IpAndPort( *address, Kynet::Port( port ) );
}

std::string aclOf( const Entry & entry ) {
   return entry.has( "acl" ) ? entry.at( "acl" ).text( "the name of an access list" ) : "";
}

NatKey keyOf( const Entry & entry ) {
   if ( !entry.has( "vlan" ) )
      return StaticKey( entry.intf( "interface" ), targetOf( entry ), endOf( entry, "original" ), protocolOf( entry ),
                        aclOf( entry ) );
   if ( aclOf( entry ).empty() ) entry.fail( "\"acl\" is missing" );
   return DynamicKey( static_cast< U16 >( entry.at( "vlan" ).number( "vlan", 1, 4094 ) ), aclOf( entry ) );
}

struct NameOf {
   template < typename K >
   std::string operator()( const K & key ) const {
      return textOf( key );
   }
};

class NatSection : public Section {
 public:
   const char * name() const override { return "nat"; }
   const char * kind() const override { return "nat"; }
   std::string key( const Entry & entry ) const override { return std::visit( NameOf(), keyOf( entry ) ); }
   bool has( const RouterState & state, const Entry & entry ) const override {
      const auto key = keyOf( entry );
      const auto * const fixed = std::get_if< StaticKey >( &key );
      return fixed != nullptr ? state.natBook().statics().contains( *fixed )
                              : state.natBook().dynamics().contains( std::get< DynamicKey >( key ) );
   }
   ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const override {
      const auto key = keyOf( entry );
      if ( const auto * const fixed = std::get_if< StaticKey >( &key ) ) {
         entry.only( { "interface", "target", "original", "translated", "protocol", "acl" } );
         // Only a VLAN interface is in a VLAN.
         const auto intfId = fixed->intfId();
         const U16 vlan = intfId.type() == Kynet::IntfType::vlan_ ? intfId.first() : 0;
         return state.natStaticIs( { *fixed, StaticConnection( endOf( entry, "translated" ), vlan, {} ) }, teller );
      }
      entry.only( { "vlan", "target", "acl", "priority" } );
      return state.natDynamicIs( { std::get< DynamicKey >( key ),
                                   DynamicRule( targetOf( entry ), entry.number( "priority", 0, ~U32( 0 ), 0 ) ) },
                                 teller );
   }
   ChangeResult del( RouterState & state, const Entry & entry ) const override {
      const auto key = keyOf( entry );
      const auto * const fixed = std::get_if< StaticKey >( &key );
      return fixed != nullptr ? state.natStaticDel( *fixed ) : state.natDynamicDel( std::get< DynamicKey >( key ) );
   }
   std::vector< ChangeResult > delOthers( RouterState & state, Teller teller,
                                          const std::set< std::string > & keys ) const override {
      for ( const auto & key : untold( state.natBook().statics(), teller, keys, NameOf() ) ) state.natStaticDel( key );
      for ( const auto & key : untold( state.natBook().dynamics(), teller, keys, NameOf() ) )
         state.natDynamicDel( key );
      return {};
   }
};

} // namespace

std::unique_ptr< const Section > natSection() { return std::make_unique< NatSection >(); }

} // namespace Host
