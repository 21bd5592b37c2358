#include "HostAgentText.h"

#include "GantActivity.h"
#include "HostAgentView.h"
#include "HulL3Status.h"
#include "MirelFib.h"

#include <deque>
#include <sys/mman.h>
#include <unistd.h>

namespace Host {

namespace {

// What is to show itself, by name: the interface of a next-hop table, or none for the FIB.
struct Part {
   std::string objName;
   Kynet::IntfId intfId;
};

// What one show writes to. A file and no socket, so that a client that does not read cannot hold the loop; and one for
// each show, so that none waits for another's.
struct Paper {
   Paper() : fd( memfd_create( "vexl3d-show", MFD_CLOEXEC ) ) {
      if ( fd < 0 )
         throw CommandError( ErrorCode::refused, "no file for the answer: " + std::string( strerror( errno ) ) );
   }
   Paper( const Paper & ) = delete;
   Paper & operator=( const Paper & ) = delete;
   ~Paper() { close( fd ); }

   const int fd;
};

// The answer names the descriptor that it is for. One that nobody waits for any more keeps its number until the answer
// has come, or the session has ended: it must not be written to whatever has the number next.
struct Owed {
   std::unique_ptr< Paper > paper;
   unsigned session;
   U64 request;
};

std::deque< Owed > & owed() {
   static std::deque< Owed > papers;
   return papers;
}

// The objects are asked one after the other, each looked up when its turn comes: one that went meanwhile is left out.
// A show is over when the data plane has acknowledged its request: the answer was written before.
class AgentText : public Answer, public Gant::StateMachine {
 public:
   AgentText( const Asked & asked, std::vector< Part > parts ) :
        session_( asked.daemon ), parts_( std::move( parts ) ), wake_( asked.wake ),
        clock_( Gant::activityManager()->newClock() ), channel_( *this ), gantClock_( *this ) {}
   ~AgentText() override {
      if ( paper_ && !ended_ ) owed().push_back( { std::move( paper_ ), session_.number(), request_ } );
   }

   Step step( Output & out ) override {
      const auto channel = session_.channel();
      while ( !out.full() ) {
         if ( !paper_ && !askNext( *channel ) ) {
            out.endMember( "interfaces", names_ );
            return Step::done;
         }
         if ( !ended_ ) {
            clock_->timeMinIs( clock_->now() + lookAgainSeconds );
            return Step::wait;
         }
         if ( !refusal_.empty() )
            throw CommandError( ErrorCode::refused, "the data plane refused the show: " + refusal_ );
         print( out );
      }
      return Step::more;
   }

 private:
   class GantChannel : public Vex::Channel::Notifiee {
    public:
      explicit GantChannel( AgentText & text ) : Notifiee( &text, text.session_.channel() ), text_( text ) {}
      void onRefusal( const Vex::Refusal & refusal ) override { text_.handleRefusal( refusal ); }
      void onAcknowledged() override {
         if ( notifier()->requestsAcknowledged() >= text_.request_ ) text_.end();
      }
      void onLost() override { text_.end(); }

    private:
      AgentText & text_;
   };

   // A session that was let go tells nobody: it is looked for.
   static constexpr double lookAgainSeconds = 0.5;
   class GantClock : public Gant::Clock::Notifiee {
    public:
      explicit GantClock( AgentText & text ) : Notifiee( &text, text.clock_ ), text_( text ) {}
      void onTime() override { text_.wake_(); }

    private:
      AgentText & text_;
   };

   Gant::Ptr< Vex::Module > moduleOf( const Part & part ) const {
      const auto modules = session_.l3Modules();
      if ( !part.intfId ) return modules->fibIpv4();
      return modules->nextHopMod( part.intfId );
   }

   // False: there is none left.
   bool askNext( const Vex::Channel & channel ) {
      for ( ; next_ < parts_.size(); ++next_ ) {
         const auto & part = parts_[ next_ ];
         const auto module = moduleOf( part );
         if ( !module ) continue;
         std::erase_if( owed(), [ & ]( const Owed & due ) {
            return due.session != session_.number() || due.request <= channel.requestsAcknowledged();
         } );
         module_ = module->name();
         paper_ = std::make_unique< Paper >();
         module->show( paper_->fd, part.objName );
         request_ = channel.requestsQueued();
         ended_ = false;
         read_ = 0;
         if ( !!part.intfId ) names_[ std::to_string( part.intfId.value() ) ] = part.intfId.stringValue();
         ++next_;
         return true;
      }
      return false;
   }

   void end() {
      if ( !paper_ || std::exchange( ended_, true ) ) return;
      wake_();
   }

   // Other clients' shows of the same module have other descriptors.
   void handleRefusal( const Vex::Refusal & refusal ) {
      if ( !paper_ || ended_ || refusal.module != module_ || !refusal.action.starts_with( "show" ) ) return;
      const auto mine = "cli_socket " + std::to_string( paper_->fd ) + " ";
      if ( refusal.argument.find( mine ) != std::string::npos ) refusal_ = refusal.text;
   }

   void print( Output & out ) {
      std::string text( 16384, '\0' );
      while ( !out.full() ) {
         const auto got = pread( paper_->fd, text.data(), text.size(), read_ );
         if ( got <= 0 ) {
            paper_ = nullptr;
            return;
         }
         read_ += got;
         out.row( { { "agentText", text.substr( 0, static_cast< size_t >( got ) ) } } );
      }
   }

   const AgentView session_;
   const std::vector< Part > parts_;
   const std::function< void() > wake_;
   size_t next_ = 0;
   Json names_ = Json::object(); // the text names interfaces by their ids

   // Of the show that is on its way, or being read.
   std::unique_ptr< Paper > paper_;
   std::string module_;
   U64 request_ = 0;
   bool ended_ = false;
   std::string refusal_;
   off_t read_ = 0;

   const Gant::Ptr< Gant::Clock > clock_;
   GantChannel channel_;
   GantClock gantClock_;
};

} // namespace

std::unique_ptr< Answer > fibText( const Asked & asked, const std::string & vrf ) {
   const AgentView session( asked.daemon );
   std::vector< Part > parts;
   for ( const auto & [ vrfId, name ] : vrfsOf( session, vrf ) ) {
      if ( const auto routes = session.routing().routeStatus()->routes( vrfId ); routes > textRoutesMax )
         throw CommandError( ErrorCode::refused, Gant::format( "VRF %s has %zu routes, and the data plane answers in "
                                                               "one piece: ask for a prefix, or verify",
                                                               name.c_str(), routes ) );
      parts.push_back( { name, {} } );
   }
   return std::make_unique< AgentText >( asked, std::move( parts ) );
}

std::unique_ptr< Answer > nexthopText( const Asked & asked, const std::string & intfName ) {
   const AgentView session( asked.daemon );
   const auto modules = session.l3Modules();
   std::vector< Part > parts;
   if ( intfName.empty() ) {
      for ( const auto & [ intfId, module ] : modules->nextHopModIterator() )
         parts.push_back( { intfId.stringValue(), intfId } );
      std::ranges::sort( parts, {}, &Part::intfId );
   } else {
      const auto intfId = intfOf( intfName );
      if ( !modules->nextHopMod( intfId ) )
         throw CommandError( ErrorCode::notFound, intfId.stringValue() + " has no next-hop table" );
      parts.push_back( { intfId.stringValue(), intfId } );
   }
   return std::make_unique< AgentText >( asked, std::move( parts ) );
}

} // namespace Host
