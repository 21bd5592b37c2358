// Where a routing suite connects: FRR's zebra with -M dplane_fpm_nl.
#pragma once

#include "HostFpmRoutes.h"

namespace Host {

//   owns     a listening socket, the connection of one client
//   watches  a clock, while the address, or a client, is not to be had
//   calls    FpmRoutes with what comes, SourceTable when a client comes and goes
//
// One client at a time; others are refused, with a message that names both. An address that is taken is tried again
// every 5 seconds: the router does without. What is malformed ends the connection, and its routes stay as stale ones.
//
// While the data plane is behind, nothing is read: at most the socket's buffer and 64 kB wait here, and the rest with
// the client.
class FpmServer : public Source, public Gant::StateMachine {
 public:
   struct Config {
      std::string address = "127.0.0.1"; // empty: there is no server
      U16 port = 2620;
      int receiveBuffer = 0; // bytes; 0: as the system has it
   };
   using Tell = std::function< void( const std::string & text, bool error ) >;
   struct Surroundings {
      FpmRoutes::IntfAt intfAt;
      std::function< bool() > congested;
      FpmAnswers::Surroundings answers;
      Tell tell;
   };

   FpmServer( RouterState & state, Config config, Surroundings around );
   ~FpmServer() override;

   // Listens in the namespace, as openNetlink() takes it.
   void start( const std::string & netns );
   void stop();
   // Called when a client has come.
   void beginWatcherIs( std::function< void() > watcher ) { begun_ = std::move( watcher ); }
   // Called when a client has told everything, and what it did not tell is swept.
   void completeWatcherIs( std::function< void() > watcher ) { complete_ = std::move( watcher ); }
   // The data plane has caught up.
   void resume();
   // Devices of interfaces in the kernel have changed.
   void devicesChanged();
   // 0: it does not listen.
   U16 port() const;
   bool connected() const;

   // Source.
   SourceFacts facts() const override;
   std::vector< SourceRefusal > refusals() const override { return routes_.refusals(); }
   void eachRefused( size_t most, const EachRefused & each ) const override { routes_.eachRefused( most, each ); }
   std::string resync() override;

 private:
   struct Sockets;
   struct GantClock;
   std::string open();
   void handleClock();
   void tryAgain( const std::string & why );
   void accept();
   void read();
   void handlePiece( size_t size );
   void lose( const std::string & why );
   bool send( const std::string & frames );

   RouterState & state_;
   const Config config_;
   const Surroundings around_;
   FpmAnswers answers_;
   FpmRoutes routes_;
   std::function< void() > begun_, complete_;
   std::string netns_;
   std::shared_ptr< Sockets > sockets_;
   SourceFacts facts_;
   double pausedSince_ = 0; // of the activity clock; 0: it reads
   bool reviewPosted_ = false;
   Gant::Ptr< Gant::Clock > clock_;
   std::unique_ptr< GantClock > clockReactor_;
   std::shared_ptr< bool > alive_ = std::make_shared< bool >( true );
};

// "127.0.0.1:2620", "[::1]:2620" or "off". Gives what is wrong, empty when nothing is.
std::string parseFpm( const std::string & text, FpmServer::Config & config );

} // namespace Host
