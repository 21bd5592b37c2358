// From a request to the command that answers it.
#pragma once

#include "HostAnswer.h"

#include <map>

namespace Host {

class CommandTable {
 public:
   // REQUIRES: no two of one name.
   explicit CommandTable( Commands commands );
   // Every command of this daemon.
   static CommandTable all();

   // `request` is what came over the socket: an object whose member "command" is the name, and whose other members are
   // those that the command declares. Throws CommandError.
   std::unique_ptr< Answer > answer( DaemonControl & daemon, const Json & request, std::function< void() > wake ) const;

 private:
   std::map< std::string, Command > commands_;
};

} // namespace Host
