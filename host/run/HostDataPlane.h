// An embedded data plane: a child process that ends with this one.
#pragma once

#include <memory>
#include <optional>
#include <string>

#include <sys/types.h>

namespace Host {

class ErrorStream;

// The socket and the counters of the data plane live in a directory of this process's own. Used on the thread that made
// it, which stays: the child dies with that thread.
class DataPlane {
 public:
   struct Size {
      unsigned maxRoutes;
      unsigned workers; // threads that move packets
   };
   // `program` empty: the vexdp that belongs to this executable.
   DataPlane( std::string program, std::string logLevel, const Size & size );
   // Ends the child, and removes the directory.
   ~DataPlane();
   DataPlane( const DataPlane & ) = delete;
   DataPlane & operator=( const DataPlane & ) = delete;

   // Starts a child. REQUIRES: there is none. Gives the reason when it cannot, empty otherwise.
   std::string start();
   // Whether the child listens by now.
   bool listens() const;
   // How the child ended, in words and in its own last ones, when it has, or does within so many milliseconds; then
   // there is none any more.
   std::optional< std::string > ended( int patience = 0 );
   // Asks the child to end, and makes it after a second.
   void stop();
   // Ends it at once, whatever it is in.
   void kill();

   pid_t pid() const { return pid_; } // 0: there is none
   std::string address() const { return "unix:" + socket(); }

 private:
   std::string socket() const { return directory_ + "/dataplane.sock"; }
   std::string makeDirectory();

   const std::string program_;
   const std::string logLevel_;
   const Size size_;
   std::string directory_;
   pid_t pid_ = 0;
   std::unique_ptr< ErrorStream > errors_; // of the present child, or of the last one
};

} // namespace Host
