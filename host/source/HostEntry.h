// One entry of the description, or of a change by command: a YAML map whose keys are read with their types.
#pragma once

#include "HostFacts.h"
#include "HostSourceErrors.h"

#include <initializer_list>
#include <stdexcept>
#include <yaml-cpp/yaml.h>

namespace Host {

// What is wrong with an entry, printable whatever of it the text has. `line` counts from 1; 0: not known.
class EntryError : public std::runtime_error {
 public:
   EntryError( const std::string & what, int line ) : std::runtime_error( printable( what ) ), line_( line ) {}
   int line() const { return line_; }

 private:
   int line_;
};

// The text as a message may show it: its beginning, control bytes written out, and nothing of what could be a key.
std::string quoted( std::string_view text );

// Every reading operation throws an EntryError that names the key.
class Entry {
 public:
   explicit Entry( const YAML::Node & node ) : node_( node ) {}

   const YAML::Node & node() const { return node_; }
   int line() const { return node_.Mark().line + 1; }
   [[noreturn]] void fail( const std::string & what ) const { throw EntryError( what, line() ); }

   // The entry is a map, and has no other keys than these.
   void only( std::initializer_list< const char * > keys ) const;
   bool has( const char * key ) const { return node_.IsMap() && node_[ key ].IsDefined(); }
   // The value under the key, which has to be there.
   Entry at( const char * key ) const;
   // The values of a list under the key, one value for a list of one, none for a key that is not there.
   std::vector< Entry > list( const char * key ) const;

   // The entry itself as a value. `what` is what it is to be, in words.
   std::string text( const char * what ) const;
   U32 number( const char * what, U32 low, U32 high ) const;
   bool flag( const char * what ) const;
   template < typename T >
   T value( const char * what ) const {
      const auto text = this->text( what );
      const auto value = T::fromString( text );
      if ( !value ) fail( Host::quoted( text ) + " is not " + what );
      return *value;
   }

   // The value under a key that need not be there.
   U32 number( const char * key, U32 low, U32 high, U32 otherwise ) const;
   bool flag( const char * key, bool otherwise ) const;
   template < typename T >
   T value( const char * key, const char * what, T otherwise ) const {
      return has( key ) ? at( key ).value< T >( what ) : otherwise;
   }

   // What descriptions speak of again and again.
   Kynet::IntfId intf( const char * key ) const;
   // The default VRF when the key is not there.
   L3::VrfName vrf( const char * key = "vrf" ) const;
   Kynet::IpAddr ip4( const char * key ) const;
   // Of an object: up to 63 letters, digits, "-", "_" and ".". `what` is what it names, in words.
   std::string name( const char * key, const char * what ) const;
   // "default" is 0.0.0.0/0.
   Kynet::IpGenPrefix prefix() const;
   // With its host bits: an address and its subnet. A plain address is its own subnet.
   Kynet::Prefix interfaceAddress() const;

 private:
   YAML::Node node_;
};

// A next hop as it is written in one word: ADDRESS, ADDRESS%INTERFACE or INTERFACE, and with *WEIGHT behind it. Gives
// what is wrong with it, empty when nothing is.
std::string parseHop( std::string_view text, Hop & hop );
// "2001:db8::1 is not a VRF name", say; empty for a good one.
std::string wrongName( const std::string & what, const std::string & name );
std::string wrongVrfName( const std::string & name );

} // namespace Host
