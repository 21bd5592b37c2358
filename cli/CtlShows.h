// The daemon answers with facts and their units, the same to every client. All that is for eyes is in this folder.
//
// The commands that ask, each described in one table: its words and options, the member of the request that each of
// them fills, and what the answer looks like. A new show is an entry here.
#pragma once

#include "CtlView.h"

#include <map>

namespace Ctl {

// A word after the command. With a keyword, the word before it says what it is: "vrf red".
struct Word {
   std::string keyword; // empty: it stands alone
   std::string member;
   std::string help;
};

struct Option {
   enum class Kind { flag, number, text, named }; // named: a number or a name
   std::string name;                              // "--most"
   std::string member;
   std::string help;
   Kind kind = Kind::flag;
   bool required = false;
};

// The options that were given, by name, with their texts; a flag has none.
using Given = std::map< std::string, std::string >;

struct Show {
   std::string command; // of the request, and the words of the command line: "show fib"
   std::string help;
   std::vector< Word > words{};
   std::vector< Option > options{};
   Columns columns{};
   bool record = false; // the answer is one object, and the columns are its facts
   Footer footer{};
   // A view of its own. Null: by columns.
   std::function< std::unique_ptr< View >( const Given &, std::ostream & ) > view{};
   // Of a complete answer. Null: done.
   std::function< int( const Json & end ) > exitCode{};
   // Options that stay here, and change the view alone.
   std::vector< Option > viewOptions{};
};

std::vector< Show > shows();

// The request's members that the words fill. Throws Error of usage.
Json membersOf( const std::vector< Word > & words, const std::vector< std::string > & given );

} // namespace Ctl
