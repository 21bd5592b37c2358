#include "HostAgentText.h"

#include "HostAgentView.h"
#include "HulL3Status.h"
#include "MirelFib.h"
#include "VexAckSm.h"

#include <sys/mman.h>
#include <unistd.h>

namespace Host {

namespace {

struct Part {
   Gant::Ptr< Vex::Module > module;
   std::string objName;
   Kynet::IntfId intfId;
};

// What the shows write to, until the last of them is done with it: that may be after the client has gone. A file and no
// socket, so that a client that does not read cannot hold the loop.
struct Paper {
   Paper() : fd( memfd_create( "vexl3d-show", MFD_CLOEXEC ) ) {
      if ( fd < 0 )
         throw CommandError( ErrorCode::refused, "no file for the answer: " + std::string( strerror( errno ) ) );
   }
   Paper( const Paper & ) = delete;
   Paper & operator=( const Paper & ) = delete;
   ~Paper() { close( fd ); }

   const int fd;
   size_t due = 0;
   bool dropped = false;
   std::function< void() > wake; // empty once the client has gone
};

class AgentText : public Answer, public Gant::StateMachine {
 public:
   AgentText( const Asked & asked, std::vector< Part > parts ) :
        session_( asked.daemon ), parts_( std::move( parts ) ), paper_( std::make_shared< Paper >() ),
        refusals_( *this, session_.channel() ) {
      paper_->wake = asked.wake;
   }
   ~AgentText() override { paper_->wake = nullptr; }

   Step step( Output & out ) override {
      if ( !asked_ ) ask();
      if ( paper_->due > 0 ) return Step::wait;
      if ( !refusal_.empty() ) throw CommandError( ErrorCode::refused, "the data plane refused the show: " + refusal_ );
      if ( paper_->dropped ) throw CommandError( ErrorCode::unavailable, "the show was dropped: an interface went" );
      return print( out );
   }

 private:
   class GantRefusals : public Vex::Channel::Notifiee {
    public:
      GantRefusals( AgentText & text, const Gant::Ptr< const Vex::Channel > & channel ) :
           Notifiee( &text, channel ), text_( text ) {}
      void onRefusal( const Vex::Refusal & refusal ) override { text_.handleRefusal( refusal ); }

    private:
      AgentText & text_;
   };

   void ask() {
      asked_ = true;
      const auto cliSm = session_.vexcsd()->cliSm();
      paper_->due = parts_.size();
      for ( const auto & part : parts_ )
         cliSm->pModuleQueueEnq( part.module, paper_->fd, part.objName, [ paper = paper_ ]( Vex::CliSm::ShowEnd end ) {
            paper->dropped |= end == Vex::CliSm::ShowEnd::dropped;
            if ( --paper->due == 0 && paper->wake ) paper->wake();
         } );
   }

   // A show that is refused has no answer, which would hold up those behind it.
   void handleRefusal( const Vex::Refusal & refusal ) {
      if ( paper_->due == 0 || !refusal.action.starts_with( "show" ) ) return;
      for ( const auto & part : parts_ ) {
         if ( part.module->name() != refusal.module ) continue;
         refusal_ = refusal.text;
         session_.vexcsd()->cliSm()->doNextModule( part.module.get() );
         return;
      }
   }

   // The text names interfaces by their ids.
   Json names() const {
      auto names = Json::object();
      for ( const auto & part : parts_ )
         if ( !!part.intfId ) names[ std::to_string( part.intfId.value() ) ] = part.intfId.stringValue();
      return names;
   }

   Step print( Output & out ) {
      std::string text( 16384, '\0' );
      while ( !out.full() ) {
         const auto got = pread( paper_->fd, text.data(), text.size(), read_ );
         if ( got <= 0 ) {
            out.endMember( "interfaces", names() );
            return Step::done;
         }
         read_ += got;
         out.row( { { "agentText", text.substr( 0, static_cast< size_t >( got ) ) } } );
      }
      return Step::more;
   }

   const AgentView session_;
   const std::vector< Part > parts_;
   std::shared_ptr< Paper > paper_;
   GantRefusals refusals_;
   std::string refusal_;
   bool asked_ = false;
   off_t read_ = 0;
};

} // namespace

std::unique_ptr< Answer > fibText( const Asked & asked, const std::string & vrf ) {
   const AgentView session( asked.daemon );
   const auto fib = session.l3Modules()->fibIpv4();
   std::vector< Part > parts;
   for ( const auto & [ vrfId, name ] : vrfsOf( session, vrf ) ) {
      if ( const auto routes = session.routing().routeStatus()->routes( vrfId ); routes > textRoutesMax )
         throw CommandError( ErrorCode::refused, Gant::format( "VRF %s has %zu routes, and the data plane answers in "
                                                               "one piece: ask for a prefix, or verify",
                                                               name.c_str(), routes ) );
      parts.push_back( { fib, name, {} } );
   }
   return std::make_unique< AgentText >( asked, std::move( parts ) );
}

std::unique_ptr< Answer > nexthopText( const Asked & asked, const std::string & intfName ) {
   const AgentView session( asked.daemon );
   const auto modules = session.l3Modules();
   std::map< Kynet::IntfId, Gant::Ptr< Vex::Module > > wanted;
   if ( intfName.empty() ) {
      wanted.insert( modules->nextHopModIterator().begin(), modules->nextHopModIterator().end() );
   } else {
      const auto intfId = intfOf( intfName );
      wanted[ intfId ] = modules->nextHopMod( intfId );
      if ( !wanted[ intfId ] )
         throw CommandError( ErrorCode::notFound, intfId.stringValue() + " has no next-hop table" );
   }
   std::vector< Part > parts;
   for ( const auto & [ intfId, module ] : wanted ) parts.push_back( { module, intfId.stringValue(), intfId } );
   return std::make_unique< AgentText >( asked, std::move( parts ) );
}

} // namespace Host
