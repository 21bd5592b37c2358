// One question to the daemon, over its command socket.
#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <stdexcept>
#include <string>

namespace Ctl {

// Members stay in the order in which the daemon wrote them.
using Json = nlohmann::ordered_json;

enum ExitCode { done = 0, refused = 1, usage = 2, notFound = 3, noDaemon = 4 };

// Why a command is not done.
struct Error {
   std::string code; // "refused", "usage", "notFound", "unavailable", "noDaemon"
   std::string message;
   ExitCode exitCode() const;
};

// Who takes an answer, row by row.
class Answer {
 public:
   virtual ~Answer() = default;
   virtual void row( const Json & row ) = 0;
   // The last call of a complete answer.
   virtual void end( const Json & end ) = 0;
   // The last call of one that is not complete. Rows may have come before.
   virtual void failed( const Error & error ) = 0;
};

struct Server {
   std::string socket;
   std::optional< unsigned > user; // whose daemon may be there beside one of this user's or of root's
};

// Asks the daemon at the socket if it is one to be trusted (SO_PEERCRED), and hands the answer over as it comes.
void ask( const Server & server, const Json & request, Answer & answer );

} // namespace Ctl
