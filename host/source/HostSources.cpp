#include "HostSources.h"

#include <filesystem>

namespace Host {

bool Sources::load() {
   auto errors = std::make_unique< SourceErrors >( tell_ );
   auto description = files_.description.empty() ? Description() : Description::read( files_.description, *errors );
   if ( !description ) {
      lastErrors_ = std::move( errors );
      return false;
   }
   lastErrors_ = nullptr;
   // It counts in the errors that it was made with.
   routeFile_.reset();
   errors_ = std::move( errors );
   description->apply( state_, *errors_ );
   kernelRoutes_ = description->kernelRoutes();
   kernelOffload_ = description->kernelOffload();
   auto config = description->routeFile();
   if ( !files_.routes.empty() )
      config.path = files_.routes;
   else if ( !config.path.empty() )
      config.path = ( std::filesystem::path( files_.description ).parent_path() / config.path ).string();
   routesPath_ = config.path;
   if ( config.path.empty() && state_.routes( Teller::routeFile() ) == 0 ) return true;
   routeFile_ = std::make_unique< RouteFile >( state_, std::move( config ), *errors_ );
   return true;
}

bool Sources::step( size_t most ) {
   if ( routeFile_ && !routeFile_->step( most ) ) routeFile_.reset();
   return busy();
}

} // namespace Host
