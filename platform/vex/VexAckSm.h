// Shows on the command line: which modules are to show, one after the other, and when the output of one is complete.
#pragma once

#include "GantAttr.h"
#include "VexModule.h"

#include <deque>
#include <functional>
#include <optional>

namespace Vex {

// The modules waiting to show themselves. One shows at a time, so that outputs do not mix.
class CliSm : public Gant::PtrInterface {
 public:
   // How a show ended: its output is complete, or it was dropped.
   enum class ShowEnd { complete, dropped };
   using Done = std::function< void( ShowEnd ) >;

   // Drops every show: this is the end of the session, so that no answer comes any more.
   ~CliSm() override;

   // Shows at once when nothing shows, otherwise when its turn comes. `socket` stays open until `done`, which is called
   // once. The module has an AckSm, and is not kept alive.
   void pModuleQueueEnq( const Gant::Ptr< Module > & module, int socket, Gant::String objName, Done done );
   size_t pModuleQueues() const { return waiting_.size(); }
   // Drops the shows that wait. The one whose answer is on its way stays until it is there: its socket would be
   // somebody else's.
   void pModuleQueueDelAll();
   // The output of the module is complete, and the next one begins. Nothing, when another one shows. When the module
   // that showed went meanwhile, any other one, or null, stands for it: only one answer is ever on its way.
   void doNextModule( const Module * module );
   // Drops the shows of the module that wait.
   void moduleGoes( const Module * module );

 private:
   struct Show {
      Module * module; // null: it went while its answer was on its way
      int socket;
      Gant::String objName;
      Done done;
   };
   void begin();

   std::optional< Show > showing_;
   std::deque< Show > waiting_;
};

// The acknowledgements of one module's shows.
class AckSm : public Gant::PtrInterface {
 public:
   // `module` owns this object, and `cliSm` outlives it; neither argument is kept alive.
   AckSm( Module * module, CliSm * cliSm ) : module_( module ), cliSm_( cliSm ) {}
   ~AckSm() override;

   // Takes the descriptor of Module::ackSocketBind; -1 is none.
   void doSetupSocketFileDescriptor( int fd );
   // Counts a show that was sent.
   U32 activeMsgCount() const { return activeMsgCount_; }
   void activeMsgCountInc( U32 n ) { activeMsgCount_ += n; }
   // The output of this module is complete.
   void doNextModule();

 private:
   Module * module_;
   CliSm * cliSm_;
   int fd_ = -1;
   U32 activeMsgCount_ = 0;
};

inline Gant::Ptr< AckSm > AckSmIs( const Gant::Ptr< Module > & module, const Gant::Ptr< CliSm > & cliSm ) {
   return Gant::make< AckSm >( module.get(), cliSm.get() );
}

} // namespace Vex
