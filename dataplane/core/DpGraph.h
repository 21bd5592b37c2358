// The modules by name, and their connections.
#pragma once

#include "DpModule.h"
#include "DpSurroundings.h"

#include <absl/container/flat_hash_map.h>

#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace Vexdp {

// What the tables of a data plane hold, whatever they are asked for.
struct Limits {
   // A route needs at most two blocks of a trie that numbers them in 24 bits.
   static constexpr std::uint32_t kMostRoutes = ( 1u << 23 ) - 1;
   std::uint32_t routes = 1u << 22; // of a FIB, all VRFs together
};

class Graph {
 public:
   // In surroundings of its own.
   explicit Graph( const Limits & limits = {} ) : Graph( limits, std::make_shared< Surroundings >(), 0 ) {}
   // No other graph in the surroundings has the side.
   Graph( const Limits & limits, std::shared_ptr< Surroundings > surroundings, Side side ) :
        limits_( limits ), surroundings_( std::move( surroundings ) ), side_( side ) {}

   const Limits & limits() const { return limits_; }
   using Modules = std::map< std::string, std::unique_ptr< Module >, std::less<> >;

   // In the order of their names.
   const Modules & modules() const { return modules_; }
   // Null when there is none of the name.
   Module * find( std::string_view name ) const;
   // The module of a class that is shared; null when there is none.
   template < class T >
   T * shared() const {
      const auto at = shared_.find( &T::moduleClass() );
      return at == shared_.end() ? nullptr : static_cast< T * >( at->second );
   }

   // See Surroundings.
   unsigned workers() const { return surroundings_->workers(); }
   // Where its ports meet what is outside.
   Wires & wires() const { return surroundings_->wires(); }
   // Its side of each wire.
   Side side() const { return side_; }

   // See Surroundings::kept(). Not while a packet is processed.
   template < class T >
   T & kept() const {
      return surroundings_->kept< T >();
   }

   // Where packets are handed to the router itself; null when there is no such module.
   Module * trap() const { return trap_; }

   // EEXIST: the name is in use, or the class is shared and has its module.
   Outcome add( std::unique_ptr< Module > module );
   // Disconnects it on both sides first. ENOENT: there is none of the name.
   Outcome remove( std::string_view name );

   // ENOENT: a module is not there. ERANGE: a gate over the limit of its class. EBUSY: the output gate is connected.
   Outcome connect( std::string_view from, std::uint64_t ogate, std::string_view to, std::uint64_t igate );
   // ENOENT: the module is not there. ENOTCONN: the gate is not connected.
   Outcome disconnect( std::string_view from, std::uint64_t ogate );

   void clear();

 private:
   static void cut( Module & from, GateId ogate );

   const Limits limits_;
   const std::shared_ptr< Surroundings > surroundings_;
   const Side side_;
   Modules modules_;
   absl::flat_hash_map< const ModuleClass *, Module * > shared_;
   Module * trap_ = nullptr;
};

} // namespace Vexdp
