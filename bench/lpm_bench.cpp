// The forwarding table alone: inserts, deletes and look-ups in a table of a million prefixes of a backbone's mix.

#include "DpLpm.h"
#include "DpPrefixes.h"

#include <benchmark/benchmark.h>

#include <memory>

namespace {

using namespace Vexdp;

constexpr std::size_t kRoutes = 1000000;

std::vector< Ipv4Prefix > prefixes( bool sorted ) {
   static const auto shuffled = DpBench::backbonePrefixes( kRoutes );
   auto prefixes = shuffled;
   if ( sorted ) std::ranges::sort( prefixes );
   return prefixes;
}

struct Table {
   LpmPool pool;
   Lpm lpm{ pool };

   void fill( const std::vector< Ipv4Prefix > & routes ) {
      std::uint32_t value = 0;
      for ( const auto & prefix : routes ) lpm.insert( prefix, value++ % 64, true );
   }
};

void insert( benchmark::State & state, bool sorted ) {
   const auto routes = prefixes( sorted );
   for ( auto _ : state ) {
      state.PauseTiming();
      auto table = std::make_unique< Table >();
      state.ResumeTiming();
      table->fill( routes );
      state.PauseTiming();
      state.counters[ "blocks" ] = double( table->pool.inUse() );
      table.reset();
      state.ResumeTiming();
   }
   state.SetItemsProcessed( std::int64_t( state.iterations() * kRoutes ) );
}

void replace( benchmark::State & state ) {
   const auto routes = prefixes( false );
   Table table;
   table.fill( routes );
   std::uint32_t value = 1000;
   for ( auto _ : state ) {
      for ( const auto & prefix : routes ) table.lpm.insert( prefix, value, true );
      ++value;
   }
   state.SetItemsProcessed( std::int64_t( state.iterations() * kRoutes ) );
}

void remove( benchmark::State & state ) {
   const auto routes = prefixes( false );
   for ( auto _ : state ) {
      state.PauseTiming();
      Table table;
      table.fill( routes );
      state.ResumeTiming();
      for ( const auto & prefix : routes ) table.lpm.remove( prefix );
   }
   state.SetItemsProcessed( std::int64_t( state.iterations() * kRoutes ) );
}

void lookup( benchmark::State & state, bool routed ) {
   const auto routes = prefixes( false );
   Table table;
   table.fill( routes );
   std::mt19937 random( 5 );
   std::vector< std::uint32_t > addresses( 1u << 20 );
   for ( auto & address : addresses ) {
      const auto & prefix = routes[ random() % routes.size() ];
      address = routed ? prefix.addr.value | ( std::uint32_t( random() ) & ~maskOf( prefix.len ) )
                       : std::uint32_t( random() );
   }
   std::size_t at = 0;
   for ( auto _ : state ) {
      benchmark::DoNotOptimize( table.lpm.lookup( { addresses[ at ] } ) );
      at = ( at + 1 ) & ( addresses.size() - 1 );
   }
   state.SetItemsProcessed( std::int64_t( state.iterations() ) );
}

// What a dump copies while the data plane waits.
void snapshot( benchmark::State & state ) {
   Table table;
   table.fill( prefixes( false ) );
   for ( auto _ : state ) benchmark::DoNotOptimize( table.lpm.routes() );
}

BENCHMARK_CAPTURE( insert, shuffled, false )->Unit( benchmark::kMillisecond );
BENCHMARK_CAPTURE( insert, sorted, true )->Unit( benchmark::kMillisecond );
BENCHMARK( replace )->Unit( benchmark::kMillisecond );
BENCHMARK( remove )->Unit( benchmark::kMillisecond );
BENCHMARK( snapshot )->Unit( benchmark::kMillisecond );
BENCHMARK_CAPTURE( lookup, anyAddress, false );
BENCHMARK_CAPTURE( lookup, routedAddress, true );

} // namespace

BENCHMARK_MAIN();
