// One connection of the command socket. For the control sources only.
#pragma once

#include "GantActivity.h"
#include "GantCleanse.h"
#include "HostCommands.h"
#include "HostControlServer.h"

#include <array>
#include <asio/local/stream_protocol.hpp>

namespace Host {

// States: idle (nothing of a request is here), reading (a part of one is), answering, closing (what is written goes out
// first).
class ControlClient : public std::enable_shared_from_this< ControlClient >, private Output, private Gant::StateMachine {
 public:
   using Socket = asio::local::stream_protocol::socket;
   // What a client needs of its server.
   struct Surroundings {
      DaemonControl & daemon;
      const CommandTable & commands;
      const ControlServer::Limits & limits;
      std::function< void( ControlClient * ) > gone; // drops the client
   };

   ControlClient( Socket socket, Surroundings surroundings );
   void begin() { read(); }
   // Refuses it with a message, and closes.
   void refuse( ErrorCode code, const std::string & message );
   // At once. Nothing is called any more.
   void close();
   bool idle() const { return state_ == State::idle; }
   double idleSince() const { return idleSince_; }

 private:
   enum class State { idle, reading, answering, closing };
   class GantClock : public Gant::Clock::Notifiee {
    public:
      explicit GantClock( ControlClient & client ) : Notifiee( &client, client.clock_ ), client_( client ) {}
      void onTime() override { client_.handleTime(); }

    private:
      ControlClient & client_;
   };

   // Output.
   void row( const Json & row ) override;
   void endMember( const std::string & key, Json value ) override { end_[ key ] = std::move( value ); }
   bool full() const override;

   void read();
   void handleRead( const std::error_code & error, size_t bytes );
   void handleInput();
   void request( std::string_view line );
   void slice();
   void sliceLater();
   void wait();
   void endAnswer( const Json & error );
   void line( const Json & json );
   void write();
   void handleWritten( const std::error_code & error );
   void handleTime();
   void drop();

   Socket socket_;
   const Surroundings around_;
   State state_ = State::idle;
   double idleSince_;
   std::array< char, 16384 > buffer_;
   Gant::CleansedString input_; // with keys, now and then

   std::unique_ptr< Answer > answer_;
   Json end_;
   U64 rows_ = 0;
   size_t sliceRows_ = 0;
   size_t sliceBegin_ = 0; // bytes of output_ before it
   bool sliceDue_ = false; // posted
   bool waiting_ = false;  // for a wake-up
   double waitEnds_ = 0;   // when it has waited for too long; 0: it does not wait

   std::string output_;
   std::string writing_; // on its way; empty: nothing is
   bool closed_ = false;

   Gant::Ptr< Gant::Clock > clock_;
   GantClock gantClock_;
};

} // namespace Host
