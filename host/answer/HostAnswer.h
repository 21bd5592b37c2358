// Commands and their answers, as the command socket sees them: a request comes as one JSON object, and an answer goes
// out in rows, a slice at a time, so that a million rows neither stand in memory nor hold the loop.
#pragma once

#include "HostDaemonControl.h"

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace Host {

// Keeps the order in which members were written: that is the order in which people read them.
using Json = nlohmann::ordered_json;

// Why a request is not done. `name()` is what goes over the socket.
enum class ErrorCode { refused, usage, notFound, unavailable };
const char * name( ErrorCode code );

// Overwrites every text in it: a request may hold keys.
void cleanse( Json & json );

// Ends a command with an error that names its object. Thrown by factories and by Answer::step.
class CommandError : public std::runtime_error {
 public:
   CommandError( ErrorCode code, const std::string & message ) : std::runtime_error( message ), code( code ) {}
   const ErrorCode code;
};

// Where an answer goes.
class Output {
 public:
   virtual ~Output() = default;
   virtual void row( const Json & row ) = 0;
   // A member of the line that ends the answer.
   virtual void endMember( const std::string & key, Json value ) = 0;
   // This slice is long enough.
   virtual bool full() const = 0;
};

// One answer on its way. It is made when the command comes, and goes when it is complete or its client is gone.
class Answer {
 public:
   enum class Step {
      more, // call again in a later turn of the loop, when the client has taken what there is
      wait, // call again after the wake-up
      done
   };
   virtual ~Answer() = default;
   virtual Step step( Output & out ) = 0;
};

// A member that a request may have.
struct Parameter {
   enum class Kind { text, number, flag, named }; // named: a number or a name
   const char * name;
   Kind kind = Kind::text;
   bool required = false;
};

// A request whose members have been checked against the command's parameters.
class Question {
 public:
   explicit Question( Json members ) : members_( std::move( members ) ) {}
   ~Question() { cleanse( members_ ); }
   Question( const Question & ) = delete;
   Question & operator=( const Question & ) = delete;
   bool has( const char * name ) const { return members_.contains( name ); }
   // Empty when it was not given.
   std::string text( const char * name ) const { return members_.value( name, std::string() ); }
   std::uint64_t number( const char * name, std::uint64_t otherwise ) const {
      return members_.value( name, otherwise );
   }
   bool flag( const char * name ) const { return members_.value( name, false ); }
   // Of a named one, a number in its digits.
   std::string word( const char * name ) const {
      const auto at = members_.find( name );
      if ( at == members_.end() ) return {};
      return at->is_string() ? at->get< std::string >() : at->dump();
   }

 private:
   Json members_;
};

// What an answer is made from.
struct Asked {
   DaemonControl & daemon;
   const Question & question;
   // Has a waiting answer called again. May be called, on the loop, as long as the answer is there.
   std::function< void() > wake;
};

struct Command {
   std::string name; // "show fib"
   std::vector< Parameter > parameters;
   std::function< std::unique_ptr< Answer >( const Asked & ) > answer;
};
using Commands = std::vector< Command >;

// An answer of few rows, written in one go when its first slice is due.
std::unique_ptr< Answer > atOnce( std::function< void( Output & ) > write );

// Rows for the keys that `keysOf` finds when the first slice is due, a slice at a time. What a key named may be gone by
// the time that its row is due.
template < typename Key >
std::unique_ptr< Answer > perKey( std::function< std::vector< Key >() > keysOf,
                                  std::function< void( const Key &, Output & ) > write ) {
   class PerKey : public Answer {
    public:
      PerKey( std::function< std::vector< Key >() > keysOf, std::function< void( const Key &, Output & ) > write ) :
           keysOf_( std::move( keysOf ) ), write_( std::move( write ) ) {}
      Step step( Output & out ) override {
         if ( keysOf_ ) {
            keys_ = keysOf_();
            keysOf_ = nullptr;
         }
         while ( next_ < keys_.size() && !out.full() ) write_( keys_[ next_++ ], out );
         return next_ < keys_.size() ? Step::more : Step::done;
      }

    private:
      std::function< std::vector< Key >() > keysOf_;
      std::function< void( const Key &, Output & ) > write_;
      std::vector< Key > keys_;
      size_t next_ = 0;
   };
   return std::make_unique< PerKey >( std::move( keysOf ), std::move( write ) );
}

} // namespace Host
