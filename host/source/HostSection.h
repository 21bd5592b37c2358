// The sections of a description. A section reads an entry and tells the state; it keeps nothing, so that a reload needs
// no comparison of files: telling what is there already changes nothing, and what is not told any more goes. A new one
// is a class of its own in a file of its own, and a line in sections().
#pragma once

#include "HostEntry.h"
#include "HostRouterState.h"

#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Host {

// What the entries of a section are, and how they reach the router's state. One parser serves the description and the
// changes by command: an entry reads the same in both. Entries that cannot be read throw EntryError.
class Section {
 public:
   virtual ~Section() = default;

   // "interfaces", the key of the description, and "interface", the kind of a change.
   virtual const char * name() const = 0;
   virtual const char * kind() const = 0;

   // The name of the entry's object, unique in its section, from its key fields alone: "Ethernet1".
   virtual std::string key( const Entry & entry ) const = 0;
   // Whether somebody has told the object already.
   virtual bool has( const RouterState & state, const Entry & entry ) const = 0;
   // Makes the object what the entry says.
   virtual ChangeResult replace( RouterState & state, const Entry & entry, Teller teller ) const = 0;
   // Takes the object away, whoever told it. Only the key fields of the entry are read.
   virtual ChangeResult del( RouterState & state, const Entry & entry ) const = 0;
   // Takes away what the source told under other keys than these, and gives the refusals.
   virtual std::vector< ChangeResult > delOthers( RouterState & state, Teller teller,
                                                  const std::set< std::string > & keys ) const = 0;
   // Nobody reads the entry any more: a section whose entries hold secrets overwrites them.
   virtual void forget( const Entry & ) const {}
};

// In the order in which the objects lean on each other.
const std::vector< std::unique_ptr< const Section > > & sections();
// Throws an EntryError that lists the kinds when there is no such one.
const Section & sectionOfKind( const std::string & kind );

std::unique_ptr< const Section > routerMacSection();
std::unique_ptr< const Section > vrfSection();
std::unique_ptr< const Section > accessListSection();
std::unique_ptr< const Section > classMapSection();
std::unique_ptr< const Section > policyMapSection();
std::unique_ptr< const Section > intfSection();
std::unique_ptr< const Section > tunnelSection();
std::unique_ptr< const Section > ipsecSection();
std::unique_ptr< const Section > neighborSection();
std::unique_ptr< const Section > routeSection();
std::unique_ptr< const Section > vlanSection();
std::unique_ptr< const Section > virtualMacSection();
std::unique_ptr< const Section > natSection();

// The keys of those that the source told, and that are not among `keys` by the names that `nameOf` gives them.
template < typename Objects, typename NameOf >
std::vector< typename Objects::key_type > untold( const Objects & objects, Teller teller,
                                                  const std::set< std::string > & keys, NameOf nameOf ) {
   std::vector< typename Objects::key_type > gone;
   for ( const auto & [ key, told ] : objects )
      if ( told.teller == teller && !keys.contains( nameOf( key ) ) ) gone.push_back( key );
   return gone;
}

// Hops as the entries of a list: words, or maps of "nexthop", "interface" and "weight".
std::vector< Hop > hopsOf( const std::vector< Entry > & entries );

} // namespace Host
