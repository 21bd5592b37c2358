// A client of the command socket that runs the loop while it waits.
#pragma once

#include "HostAnswer.h"

#include <optional>
#include <string>
#include <vector>

namespace Test {

class ControlSocket {
 public:
   explicit ControlSocket( const std::string & path );
   ~ControlSocket();
   ControlSocket( const ControlSocket & ) = delete;
   ControlSocket & operator=( const ControlSocket & ) = delete;

   void send( const std::string & text ) const;
   // No more is sent.
   void shut() const;
   // The next line; nothing once the daemon has closed the connection.
   std::optional< Host::Json > line();
   bool closed() { return !line(); }
   // The whole answer of one request: its rows, and its end or its error at last.
   std::vector< Host::Json > ask( const Host::Json & request );
   std::vector< Host::Json > answer();

 private:
   bool receive();

   const int fd_;
   std::string input_;
   bool end_ = false;
};

} // namespace Test
