// Where the programs find each other: a directory to which nobody else can write. A socket at a path that strangers can
// take first is a stranger's socket one day, and keys go over these.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include <sys/types.h>

namespace Runtime {

// Of this process: what the service manager made ($RUNTIME_DIRECTORY); /run/vexl3d for root; vexl3d in
// $XDG_RUNTIME_DIR; /tmp/vexl3d-UID.
std::string directory();

// Those in which a daemon of this user's or of the system's may be, in the order to look in.
std::vector< std::string > directories();

// Makes it when it is not there, for this user alone (root: readable for its group). Gives why it cannot be used, empty
// when it can.
std::string prepare( const std::string & directory );

// The system's user that the daemon runs as where a package made one: only root can have done so.
std::optional< uid_t > serviceUser();

// Why what is in it may be somebody else's, empty when it is this user's or root's, or of the system's directory the
// service user's, and no other can write to it.
std::string distrusted( const std::string & directory );

} // namespace Runtime
