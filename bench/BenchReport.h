// The figures of one run of the program, and the table that it prints.
#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <vector>

namespace Bench {

// One measurement of one piece of work.
struct Sample {
   double wall = 0;     // seconds
   double cpuHere = 0;  // seconds of this process
   double cpuThere = 0; // of the data plane
};

struct Spread {
   double min = 0, median = 0, max = 0;
};
// REQUIRES: values are there
Spread spreadOf( std::vector< double > values );
// The value that `part` (0 to 1) of them do not exceed.
double quantile( std::vector< double > values, double part );

// Who did a piece of work. Declared in the order in which they are printed.
enum class Way { agent, endToEnd, fed, floor, kernel };
// What was done. In the order of the doing.
enum class Phase { add, adjacencies, loneAdjacency, loneRoute, change, move, del };
inline constexpr Phase allPhases[] = {
     Phase::add, Phase::adjacencies, Phase::loneAdjacency, Phase::loneRoute, Phase::change, Phase::move, Phase::del };

struct Key {
   Phase phase;
   bool sorted;
   Way way;
   auto operator<=>( const Key & ) const = default;
};

class Report {
 public:
   explicit Report( std::size_t routes ) : routes_( routes ) {}

   // A piece of work of so many operations.
   void work( const Key & key, std::size_t operations, const Sample & sample );
   // Single operations, each waited for: seconds of each.
   void latencies( const Key & key, const std::vector< double > & seconds );
   // Any other figure.
   void figure( const std::string & what, const std::string & unit, double value );
   void note( const std::string & text ) { notes_.push_back( text ); }

   // The median; nothing where it was not measured. Seconds for one operation, seconds alone, and other figures.
   std::optional< double > each( const Key & key ) const;
   std::optional< double > alone( const Key & key ) const;
   std::optional< double > figure( const std::string & what ) const;
   std::size_t operations( const Key & key ) const;

   void print() const;

 private:
   struct Row {
      std::size_t operations = 0;
      std::vector< Sample > samples;
   };
   struct Latency {
      std::vector< double > medians, p99s;
   };
   struct Figure {
      std::string what, unit;
      std::vector< double > values;
   };
   void printRow( const Key & key, const Row & row ) const;
   void printLatencies() const;
   void printFigures() const;

   std::size_t routes_;
   std::map< Key, Row > rows_;
   std::map< Key, Latency > latencies_;
   std::vector< Figure > figures_;
   std::vector< std::string > notes_;
};

// To the standard error stream, with the time since the start.
void progress( const std::string & text );

} // namespace Bench
