// The modules by name, and their connections.
#pragma once

#include "DpModule.h"

#include <map>
#include <memory>
#include <string>
#include <string_view>

namespace Vexdp {

class Graph {
 public:
   using Modules = std::map< std::string, std::unique_ptr< Module >, std::less<> >;

   // In the order of their names.
   const Modules & modules() const { return modules_; }
   // Null when there is none of the name.
   Module * find( std::string_view name ) const;

   // EEXIST: the name is in use.
   Outcome add( std::unique_ptr< Module > module );
   // Disconnects it on both sides first. ENOENT: there is none of the name.
   Outcome remove( std::string_view name );

   // ENOENT: a module is not there. ERANGE: a gate over the limit of its class. EBUSY: the output gate is connected.
   Outcome connect( std::string_view from, std::uint64_t ogate, std::string_view to, std::uint64_t igate );
   // ENOENT: the module is not there. ENOTCONN: the gate is not connected.
   Outcome disconnect( std::string_view from, std::uint64_t ogate );

   void clear() { modules_.clear(); }

 private:
   static void cut( Module & from, GateId ogate );

   Modules modules_;
};

} // namespace Vexdp
