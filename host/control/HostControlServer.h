// The command socket: a Unix stream socket, where each line is a request and each answer some lines.
//
//    request  {"command": "show fib", "vrf": "red"}        one JSON object a line
//    answer   {"ok": true, "command": "show fib"}
//             {"row": {...}}                               any number of them
//             {"end": {"rows": 2, ...}}                    with "error" when the answer broke off
//        or   {"error": {"code": "...", "message": "..."}} the whole answer
//
// Requests of one client are answered one after the other, those of different clients side by side. What is no request
// is refused, and its connection closed.
#pragma once

#include <cstddef>
#include <memory>
#include <string>

namespace Host {

class CommandTable;
class DaemonControl;

class ControlServer {
 public:
   // Beyond `clientsMax`, the client that has been idle for longest makes room, and is told so; when none is idle, the
   // new one is refused.
   struct Limits {
      size_t clientsMax = 64;
      size_t requestBytesMax = 65536;
      size_t answerBytesMax = 262144; // that wait to be taken by a client; more rows are made when it takes them
      double requestSeconds = 10;     // from the first byte of a request to its last
      double answerSeconds = 30;      // that an answer waits for the data plane
      double stalledSeconds = 60;     // without the client taking anything of its answer
   };

   // With every command, and no more clients than leave the process descriptors for its own needs. The daemon and what
   // its state machines run on live longer.
   explicit ControlServer( DaemonControl & daemon );
   ControlServer( DaemonControl & daemon, const CommandTable & commands, const Limits & limits );
   ~ControlServer();
   ControlServer( const ControlServer & ) = delete;
   ControlServer & operator=( const ControlServer & ) = delete;

   // Listens at the path, with mode 0660; what a dead process left there is replaced. Gives the reason when it cannot,
   // such as another daemon that has the path, which is known by a lock on a file beside it.
   std::string open( const std::string & path );
   // Ends every connection, and removes the socket.
   void close();
   size_t clients() const;

 private:
   struct Impl;
   std::shared_ptr< Impl > impl_;
};

} // namespace Host
