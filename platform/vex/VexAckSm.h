// Shows on the command line: which modules are to show, one after the other, and when the output of one is complete.
#pragma once

#include "GantAttr.h"
#include "VexModule.h"

#include <deque>
#include <functional>

namespace Vex {

// The modules waiting to show themselves. One shows at a time, so that outputs do not mix.
class CliSm : public Gant::PtrInterface {
 public:
   // How a show ended: its output is complete, or it was dropped.
   enum class ShowEnd { complete, dropped };
   using Done = std::function< void( ShowEnd ) >;

   ~CliSm() override { pModuleQueueDelAll(); }

   // Shows at once when nothing shows, otherwise when its turn comes. `socket` stays open until `done`, which is called
   // once.
   void pModuleQueueEnq( Gant::Ptr< Module > module, int socket, Gant::String objName, Done done );
   size_t pModuleQueues() const { return waiting_.size(); }
   // Drops every show, also the one whose answer is on its way.
   void pModuleQueueDelAll();
   // The output of the module is complete, and the next one begins. Nothing, when another one shows: its show was
   // dropped.
   void doNextModule( const Module * module );

 private:
   struct Show {
      Gant::Ptr< Module > module;
      int socket;
      Gant::String objName;
      Done done;
   };
   void begin();

   std::deque< Show > waiting_; // the front one shows
};

// The acknowledgements of one module's shows.
class AckSm : public Gant::PtrInterface {
 public:
   // `module` owns this object; neither argument is kept alive.
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
