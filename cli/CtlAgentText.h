// The agent's own text form of its shows: dictionary entries as of Python literals, with comments.
#pragma once

#include "CtlView.h"

#include <string_view>

namespace Ctl {

// The entries of the text, in order: tuples as arrays, dictionaries as objects. Throws Error when it is none.
std::vector< std::pair< std::string, Json > > parseAgentText( std::string_view text );

// Its rows: those of "show fib" from pModuleFIB and pModuleFEC entries, those of "show nexthops" from pModule...NH
// entries. `intfNames`: the names of the interfaces' ids.
std::vector< Json > rowsOfAgentText( std::string_view text, const Json & intfNames );

// Takes an answer whose rows are pieces of that text, and hands on the rows that it says. Other rows go through.
class AgentTextAnswer : public Answer {
 public:
   explicit AgentTextAnswer( Answer & to ) : to_( to ) {}
   void row( const Json & row ) override;
   void end( const Json & end ) override;
   void failed( const Error & error ) override { to_.failed( error ); }

 private:
   Answer & to_;
   std::string text_;
};

} // namespace Ctl
