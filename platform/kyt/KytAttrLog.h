// The attribute log: changes of attributes, written to a socket for whoever looks on.
#pragma once

#include "GantEntity.h"

namespace Gant::NboAttrLog {

// The end of one log's socket.
class SocketOutSm : public StateMachine {
 public:
   explicit SocketOutSm( Name name ) : name_( std::move( name ) ) {}
   GANT_CONST( Name, name )
};

class OutManagerSm : public StateMachine {
 public:
   using SocketOutSms = OrderedMap< Name, Ptr< SocketOutSm > >;
   // Of the log with the name; made when it is asked for first.
   Ptr< SocketOutSm > socketOutSm( const Name & name );

 private:
   SocketOutSms socketOutSms_;
};

// The process's one manager.
const Ptr< OutManagerSm > & top();

} // namespace Gant::NboAttrLog

namespace Kyt {

class AttrLogSm : public Gant::StateMachine {
 public:
   struct Args {
      Gant::Ptr< Gant::NboAttrLog::SocketOutSm > socketOutSm{};
      U32 maxIterUntilBufferCheck = 0; // records written between two looks at the socket's buffer
   };
   explicit AttrLogSm( Args args ) : args_( std::move( args ) ) {}
   const Args & args() const { return args_; }

 private:
   Args args_;
};

} // namespace Kyt
