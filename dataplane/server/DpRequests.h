// Requests, checked and applied to a graph. A refused one has changed nothing.
#pragma once

#include "DpGraph.h"
#include "DpModuleClass.h"
#include "DpReport.h"

#include "bess/control.pb.h"
#include "vex/engine.pb.h"

#include <array>

namespace Vexdp {

class Requests {
 public:
   explicit Requests( Graph & graph ) : graph_( graph ) {}

   // `name` becomes the module's name, which is made up when the request has none. ENOENT: no such class. EINVAL: the
   // argument is not of the class's init message type, or the class refuses it.
   Outcome create( const bess::pb::CreateModuleRequest & request, std::string & name );
   Outcome destroy( const bess::pb::DestroyModuleRequest & request ) { return graph_.remove( request.name() ); }
   Outcome connect( const bess::pb::ConnectModulesRequest & request );
   Outcome disconnect( const bess::pb::DisconnectModulesRequest & request );

   // A command of a module, found once and run with many arguments. Good until the graph changes.
   class Target {
    public:
      // So many arguments may be read before their turn.
      static constexpr int kAhead = 8;
      // REQUIRES: fewer than kAhead were read and not run
      void read( const std::string & bytes );
      // With the oldest that was read. EINVAL: its bytes are no message of the command's type.
      Outcome run( Answer & answer );

    private:
      friend class Requests;
      struct Arg {
         std::unique_ptr< google::protobuf::Message > message;
         bool parsed;
      };
      Module * module_ = nullptr;
      const Command * command_ = nullptr;
      std::array< Arg, kAhead > args_;
      unsigned read_ = 0;
      unsigned run_ = 0;
   };
   // ENOENT: no such module. EOPNOTSUPP: its class has no such command. EINVAL: the command takes another type.
   Outcome find( std::string_view module, std::string_view cmd, std::string_view type, Target & target ) const;

   // Of a module, as far as it is known.
   Subject subject( std::string_view module, std::string_view action ) const;

 private:
   std::string madeUpName( const ModuleClass & mclass );

   Graph & graph_;
   std::uint64_t namesMadeUp_ = 0;
};

} // namespace Vexdp
