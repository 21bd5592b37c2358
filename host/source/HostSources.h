// The files that tell the router what it is, and their reading in steps.
#pragma once

#include "HostDescription.h"

namespace Host {

struct SourceFiles {
   std::string description; // empty: there is none
   std::string routes;      // empty: the one that the description names, if any
};

// The description is applied at once, the route file in steps of its own. A description that cannot be read at all
// leaves everything as it was, and a route file that is being read goes on.
class Sources {
 public:
   Sources( RouterState & state, SourceFiles files, SourceErrors::Tell tell ) :
        state_( state ), files_( std::move( files ) ), tell_( std::move( tell ) ),
        errors_( std::make_unique< SourceErrors >( tell_ ) ) {}

   // Reads the description and applies it, and begins with the route file anew. False: it cannot be read at all.
   bool load();
   // Goes on with the route file: so many lines, or routes. False once nothing is left to do.
   bool step( size_t most );

   bool busy() const { return routeFile_ != nullptr; }
   // Of the last load.
   const SourceErrors & errors() const { return lastErrors_ ? *lastErrors_ : *errors_; }
   const std::string & description() const { return files_.description; }
   // The path of the one in use, empty when there is none.
   const std::string & routeFile() const { return routesPath_; }
   // As those of Description, of the last description that could be read.
   bool kernelRoutes() const { return kernelRoutes_; }
   bool kernelOffload() const { return kernelOffload_; }

 private:
   RouterState & state_;
   const SourceFiles files_;
   SourceErrors::Tell tell_;
   std::unique_ptr< SourceErrors > errors_;
   std::unique_ptr< SourceErrors > lastErrors_; // of a load that came to nothing: the route file goes on with its own
   std::unique_ptr< RouteFile > routeFile_;
   std::string routesPath_;
   bool kernelRoutes_ = true;
   bool kernelOffload_ = true;
};

} // namespace Host
