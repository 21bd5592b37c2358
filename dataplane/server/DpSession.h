// Sessions of the batch stream: one at a time owns the data plane. Further ones stand by in the order of their coming,
// unless they are to take it over.
//
// A session is a state machine on one thread, which also applies the batches. Synchronous streams would block a thread
// in a read that only the client can end; the newer session must be able to.
//
//   state       what is under way                on success        on failure
//   waiting     the next call                    standby or greeting, and a new session waits
//   standby     write Owner; read                stays             ending (the client is gone)
//   greeting    write Hello                      reading           ending
//   reading     read a batch                     apply, replying   ending (the client has sent its last)
//   replying    write the reply                  reading           ending
//   ending      the status                       gone              gone
//
//   event: the owner's session ended             the first on standby: greeting, the others are told the new owner
//   event: taken over by a newer session         ending with ABORTED, at once or after the write under way
//   event: no batch, or one out of its order     ending with INVALID_ARGUMENT
#pragma once

#include "DpEngineService.h"

#include <grpcpp/grpcpp.h>

#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <thread>

namespace Vexdp {

class Session;

// Serves the sessions from start() until the gRPC server is shut down.
class SessionServer {
 public:
   // All outlive the server. The queue is one that the gRPC server was built with, for this server alone.
   SessionServer( Engine & engine, EngineService & service, grpc::ServerCompletionQueue & queue );
   // REQUIRES: the gRPC server is shut down, or was never started
   ~SessionServer();

   // REQUIRES: the gRPC server is running
   void start();

 private:
   friend class Session;

   void serve();
   void waitForNext();
   // The session has its call.
   void came( Session & session );
   void ownerIs( Session & session );
   void ended( const Session & session );
   vex::pb::Owner ownerMessage() const; // REQUIRES: there is an owner

   Engine & engine_;
   EngineService & service_;
   grpc::ServerCompletionQueue & queue_;
   std::map< const Session *, std::unique_ptr< Session > > sessions_;
   Session * owner_ = nullptr;
   std::deque< Session * > standby_;
   std::uint64_t lastId_ = 0;
   std::thread thread_;
};

} // namespace Vexdp
