// The error stream of a child: passed on to this process's own, and remembered.
#pragma once

#include <memory>
#include <string>

namespace Host {

class ErrorStream {
 public:
   // Takes a pipe's end to read from.
   explicit ErrorStream( int fd );
   ~ErrorStream();
   ErrorStream( const ErrorStream & ) = delete;
   ErrorStream & operator=( const ErrorStream & ) = delete;

   // The last line with anything in it, of what has come by now.
   std::string lastLine();

 private:
   struct Impl;
   std::shared_ptr< Impl > impl_;
};

} // namespace Host
