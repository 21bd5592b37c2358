// A data plane that writes down what it is asked, one readable line a request.
#pragma once

#include "VexChannel.h"

#include <google/protobuf/arena.h>
#include <vector>

namespace Test {

using Lines = std::vector< Gant::String >;

// The lines of a block of text, without indentation and empty lines.
Lines lines( const char * block );

class RecordingChannel : public Vex::Channel {
 public:
   using OriginId = Vex::Channel::OriginId;
   void createModule( OriginId origin, const Gant::String & name, const char * moduleClass,
                      const Message * initArgs ) override;
   void destroyModule( OriginId origin, const Gant::String & name ) override;
   void connectModules( OriginId origin, const Gant::String & from, Vex::GateId outGate, const Gant::String & to,
                        Vex::GateId inGate ) override;
   void disconnectModules( OriginId origin, const Gant::String & from, Vex::GateId outGate ) override;
   void command( OriginId origin, std::string_view module, std::string_view action, const Message & message,
                 bool changesForwarding ) override;
   google::protobuf::Arena & arena() override { return arena_; }

   // What was asked since the last call. The data plane has answered it then.
   Lines take() {
      acknowledgedIs( requestsQueued() );
      return std::exchange( lines_, {} );
   }
   // Of it, the lines that begin with one of the words, in order.
   Lines takeOf( std::initializer_list< std::string_view > words );

   // The data plane answers, refuses, and goes.
   using Vex::Channel::lostIs;
   using Vex::Channel::refusalIs;
   using Vex::Channel::responseIs;

 private:
   void add( OriginId origin, Gant::String line, bool changesForwarding );

   google::protobuf::Arena arena_;
   Lines lines_;
};

} // namespace Test
