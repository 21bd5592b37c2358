// Channels that lead nowhere.
#pragma once

#include "VexChannel.h"

#include <google/protobuf/arena.h>

#include <functional>
#include <memory>
#include <set>
#include <string>
#include <vector>

namespace Bench {

// Takes requests and forgets them: what is left is the agent's own time.
class SwallowingChannel : public Vex::Channel {
 public:
   void createModule( OriginId, const Gant::String &, const char *, const Message * ) override { swallow( true ); }
   void destroyModule( OriginId, const Gant::String & ) override { swallow( true ); }
   void connectModules( OriginId, const Gant::String &, Vex::GateId, const Gant::String &, Vex::GateId ) override {
      swallow( true );
   }
   void disconnectModules( OriginId, const Gant::String &, Vex::GateId ) override { swallow( true ); }
   void command( OriginId, std::string_view, std::string_view, const Message &, bool changesForwarding ) override {
      swallow( changesForwarding );
   }
   google::protobuf::Arena & arena() override { return arena_; }

 private:
   void swallow( bool changesForwarding ) {
      requestQueued( changesForwarding );
      if ( requestsQueued() % 4096 == 0 ) arena_.Reset();
   }
   google::protobuf::Arena arena_;
};

// Keeps the requests, complete, so that they can be made again on another channel.
class KeepingChannel : public Vex::Channel {
 public:
   void createModule( OriginId, const Gant::String &, const char *, const Message * ) override;
   void destroyModule( OriginId, const Gant::String & ) override;
   void connectModules( OriginId, const Gant::String &, Vex::GateId, const Gant::String &, Vex::GateId ) override;
   void disconnectModules( OriginId, const Gant::String &, Vex::GateId ) override;
   void command( OriginId, std::string_view, std::string_view, const Message &, bool changesForwarding ) override;
   google::protobuf::Arena & arena() override { return made_; }

   std::size_t kept() const { return commands_.size(); }
   // REQUIRES: index < kept()
   void repeat( std::size_t index, Vex::Channel & channel, OriginId origin ) const;

 private:
   // A command, or, without a message, one of the others.
   struct Command {
      std::string_view module, action;
      const Message * message;
      bool changesForwarding;
      std::uint32_t other;
   };
   using Other = std::function< void( Vex::Channel &, OriginId ) >;

   void keep( Other other );
   std::string_view name( std::string_view text ) { return *names_.emplace( text ).first; }
   const Message * copy( const Message & message );

   google::protobuf::Arena made_;
   google::protobuf::Arena copies_;
   std::set< std::string, std::less<> > names_;
   std::vector< Command > commands_;
   std::vector< Other > others_;
};

} // namespace Bench
