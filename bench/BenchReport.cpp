#include "BenchReport.h"

#include "BenchProcess.h"

#include <fmt/format.h>

#include <algorithm>

namespace Bench {

namespace {

const char * nameOf( Way way ) {
   switch ( way ) {
   case Way::agent: return "agent alone";
   case Way::endToEnd: return "end to end";
   case Way::fed: return "fed";
   case Way::floor: return "floor";
   case Way::kernel: return "kernel";
   }
   return "";
}

const char * nameOf( Phase phase ) {
   switch ( phase ) {
   case Phase::add: return "add all routes";
   case Phase::adjacencies: return "change adjacencies, all 4 next hops";
   case Phase::loneAdjacency: return "change one adjacency, alone";
   case Phase::loneRoute: return "change one route, alone";
   case Phase::change: return "change all routes to one adjacency";
   case Phase::move: return "move that adjacency under all routes";
   case Phase::del: return "delete all routes";
   }
   return "";
}

template < typename Part >
Spread spreadOfPart( const std::vector< Sample > & samples, Part part ) {
   std::vector< double > values;
   for ( const auto & sample : samples ) values.push_back( sample.*part );
   return spreadOf( values );
}

} // namespace

double quantile( std::vector< double > values, double part ) {
   std::ranges::sort( values );
   return values[ std::min( values.size() - 1, std::size_t( part * double( values.size() ) ) ) ];
}

Spread spreadOf( std::vector< double > values ) {
   return { std::ranges::min( values ), quantile( values, 0.5 ), std::ranges::max( values ) };
}

void Report::work( const Key & key, std::size_t operations, const Sample & sample ) {
   auto & row = rows_[ key ];
   row.operations = operations;
   row.samples.push_back( sample );
}

void Report::latencies( const Key & key, const std::vector< double > & seconds ) {
   auto & latency = latencies_[ key ];
   latency.medians.push_back( quantile( seconds, 0.5 ) );
   latency.p99s.push_back( quantile( seconds, 0.99 ) );
}

void Report::figure( const std::string & what, const std::string & unit, double value ) {
   for ( auto & figure : figures_ )
      if ( figure.what == what ) return figure.values.push_back( value );
   figures_.push_back( { what, unit, { value } } );
}

std::optional< double > Report::each( const Key & key ) const {
   const auto at = rows_.find( key );
   if ( at == rows_.end() ) return std::nullopt;
   return spreadOfPart( at->second.samples, &Sample::wall ).median / double( at->second.operations );
}

std::optional< double > Report::alone( const Key & key ) const {
   const auto at = latencies_.find( key );
   if ( at == latencies_.end() ) return std::nullopt;
   return spreadOf( at->second.medians ).median;
}

std::optional< double > Report::figure( const std::string & what ) const {
   for ( const auto & figure : figures_ )
      if ( figure.what == what ) return spreadOf( figure.values ).median;
   return std::nullopt;
}

std::size_t Report::operations( const Key & key ) const {
   const auto at = rows_.find( key );
   return at == rows_.end() ? 0 : at->second.operations;
}

void Report::printRow( const Key & key, const Row & row ) const {
   const auto wall = spreadOfPart( row.samples, &Sample::wall );
   const double mine = *each( key );
   // How many times as long as the floor it took, and how many times as fast as the kernel it was.
   const auto comparedTo = [ & ]( Way way ) {
      const bool comparable = key.way != Way::agent && key.way != way && key.way != Way::kernel;
      return comparable ? each( { key.phase, key.sorted, way } ) : std::nullopt;
   };
   const auto floor = comparedTo( Way::floor );
   const auto kernel = comparedTo( Way::kernel );
   fmt::print( "{:<37}{:<9}{:<12}{:>9}{:>10.1f}{:>10.1f}{:>10.1f}{:>12.0f}{:>9.3f}{:>9.0f}{:>9.0f}{:>8}{:>9}\n",
               nameOf( key.phase ), key.sorted ? "sorted" : "shuffled", nameOf( key.way ), row.operations,
               wall.min * 1e3, wall.median * 1e3, wall.max * 1e3, double( row.operations ) / wall.median,
               wall.median * 1e6 / double( row.operations ), spreadOfPart( row.samples, &Sample::cpuHere ).median * 1e3,
               spreadOfPart( row.samples, &Sample::cpuThere ).median * 1e3,
               floor ? fmt::format( "{:.2f}", mine / *floor ) : "-",
               kernel ? fmt::format( "{:.2f}", *kernel / mine ) : "-" );
}

void Report::printLatencies() const {
   fmt::print( "\n{:<37}{:<9}{:<12}{:>30}{:>30}\n", "alone, nothing else queued", "order", "way",
               "median us, min/median/max", "99% us, min/median/max" );
   for ( const auto & [ key, latency ] : latencies_ ) {
      const auto three = []( const std::vector< double > & values ) {
         const auto spread = spreadOf( values );
         return fmt::format( "{:.0f} / {:.0f} / {:.0f}", spread.min * 1e6, spread.median * 1e6, spread.max * 1e6 );
      };
      fmt::print( "{:<37}{:<9}{:<12}{:>30}{:>30}\n", nameOf( key.phase ), key.sorted ? "sorted" : "shuffled",
                  nameOf( key.way ), three( latency.medians ), three( latency.p99s ) );
   }
}

void Report::printFigures() const {
   fmt::print( "\n{:<58}{:>12}{:>12}{:>12}\n", "other", "min", "median", "max" );
   for ( const auto & [ what, unit, values ] : figures_ ) {
      const auto spread = spreadOf( values );
      fmt::print( "{:<58}{:>12.1f}{:>12.1f}{:>12.1f} {}\n", what, spread.min, spread.median, spread.max, unit );
   }
}

void Report::print() const {
   std::size_t runs = 0;
   for ( const auto & [ key, row ] : rows_ ) runs = std::max( runs, row.samples.size() );
   fmt::print( "{} routes over 64 adjacencies of 4 next hops, runs: {}\n\n", routes_, runs );
   fmt::print( "{:<37}{:<9}{:<12}{:>9}{:>10}{:>10}{:>10}{:>12}{:>9}{:>9}{:>9}{:>8}{:>9}\n", "", "order", "way", "times",
               "min ms", "median", "max", "per second", "us each", "CPU ms", "CPU dp", "x time", "x speed" );
   fmt::print( "{:>118}{:>9}{:>8}{:>9}\n", "here", "", "floor", "kernel" );
   for ( const auto & [ key, row ] : rows_ ) printRow( key, row );
   if ( !latencies_.empty() ) printLatencies();
   if ( !figures_.empty() ) printFigures();
   for ( const auto & note : notes_ ) fmt::print( "\n{}\n", note );
}

void progress( const std::string & text ) {
   static const auto start = Clock::now();
   fmt::print( stderr, "{:>7.1f} s  {}\n", secondsSince( start ), text );
}

} // namespace Bench
