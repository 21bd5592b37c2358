#include "RuntimeDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <sys/stat.h>
#include <unistd.h>

namespace Runtime {

namespace {

constexpr const char * systems = "/run/vexl3d";

// Absolute, and empty when the variable has none.
std::string pathIn( const char * variable ) {
   const char * const value = std::getenv( variable );
   if ( value == nullptr || *value != '/' ) return {};
   // The service manager puts colons between several.
   return std::string( value, std::strcspn( value, ":" ) );
}

std::string ownOfUser() { return "/tmp/vexl3d-" + std::to_string( geteuid() ); }

} // namespace

std::string directory() {
   if ( auto path = pathIn( "RUNTIME_DIRECTORY" ); !path.empty() ) return path;
   if ( geteuid() == 0 ) return systems;
   const auto user = pathIn( "XDG_RUNTIME_DIR" );
   return user.empty() ? ownOfUser() : user + "/vexl3d";
}

std::vector< std::string > directories() {
   std::vector< std::string > places{ systems };
   if ( const auto user = pathIn( "XDG_RUNTIME_DIR" ); !user.empty() ) places.push_back( user + "/vexl3d" );
   places.push_back( ownOfUser() );
   return places;
}

std::string prepare( const std::string & directory ) {
   const mode_t mode = geteuid() == 0 ? 0750 : 0700;
   if ( mkdir( directory.c_str(), mode ) != 0 && errno != EEXIST ) return directory + ": " + std::strerror( errno );
   return distrusted( directory );
}

std::string distrusted( const std::string & directory ) {
   struct stat status {};
   if ( lstat( directory.c_str(), &status ) != 0 ) return directory + ": " + std::strerror( errno );
   if ( !S_ISDIR( status.st_mode ) ) return directory + ": it is no directory";
   if ( status.st_uid != geteuid() && status.st_uid != 0 )
      return directory + ": it belongs to user " + std::to_string( status.st_uid );
   if ( ( status.st_mode & ( S_IWGRP | S_IWOTH ) ) != 0 ) return directory + ": others can write to it";
   return {};
}

} // namespace Runtime
