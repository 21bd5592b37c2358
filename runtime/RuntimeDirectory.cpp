#include "RuntimeDirectory.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

namespace Runtime {

namespace {

constexpr const char * systems = "/run/vexl3d";
constexpr const char * serviceUserName = "vexl3d";
constexpr uid_t systemUserMost = 999; // of those that a package makes

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

std::optional< uid_t > serviceUser() {
   const auto * const user = getpwnam( serviceUserName );
   return user != nullptr && user->pw_uid <= systemUserMost ? std::optional( user->pw_uid ) : std::nullopt;
}

std::string distrusted( const std::string & directory ) {
   struct stat status {};
   if ( lstat( directory.c_str(), &status ) != 0 ) return directory + ": " + std::strerror( errno );
   if ( !S_ISDIR( status.st_mode ) ) return directory + ": it is no directory";
   const bool serves = directory == systems && status.st_uid == serviceUser();
   if ( status.st_uid != geteuid() && status.st_uid != 0 && !serves )
      return directory + ": it belongs to user " + std::to_string( status.st_uid );
   if ( ( status.st_mode & ( S_IWGRP | S_IWOTH ) ) != 0 ) return directory + ": others can write to it";
   return {};
}

} // namespace Runtime
