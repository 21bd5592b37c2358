// Measures the whole, and prints one table of one run. docs/performance.md says what each line means.

#include "BenchDaemon.h"
#include "BenchKernel.h"
#include "BenchProcess.h"
#include "BenchReport.h"
#include "BenchScenario.h"
#include "BenchTargets.h"
#include "BenchVerify.h"
#include "VexGrpcChannel.h"

#include <CLI/CLI.hpp>
#include <fmt/format.h>

#include <set>
#include <stdexcept>

namespace {

using namespace Bench;

struct Options {
   Sizes sizes;
   int runs = 3;
   bool quick = false;
   // Of parts; all, when empty.
   std::set< std::string > only;
   bool wanted( const char * part ) const { return only.empty() || only.contains( part ); }
};

const std::set< std::string > parts{ "kernel", "agent", "end-to-end", "floor", "fed", "recovery", "daemon" };

class Benchmark {
 public:
   explicit Benchmark( const Options & options ) :
        options_( options ), sizes_( options.sizes ), shuffled_( sizes_.routes, false ), sorted_( sizes_.routes, true ),
        report_( sizes_.routes ) {}

   void run() {
      // In children of this process, while it has one thread.
      for ( int n = 0; n < options_.runs; ++n ) eachOrder( "kernel", n, &Benchmark::kernel );
      if ( !kernelReason_.empty() ) report_.note( "The kernel could not be measured: " + kernelReason_ + "." );
      for ( int n = 0; n < options_.runs; ++n ) eachOrder( "agent", n, &Benchmark::agentAlone );
      for ( int n = 0; n < options_.runs; ++n ) {
         eachOrder( "end-to-end", n, &Benchmark::endToEnd );
         eachOrder( "floor", n, &Benchmark::floor );
         eachOrder( "fed", n, &Benchmark::fed );
      }
      for ( int n = 0; n < options_.runs; ++n ) recovery( n );
      dataPlane_.reset();
      for ( int n = 0; n < options_.runs; ++n )
         if ( begins( "daemon", n ) ) measureDaemon( shuffled_, report_ );
   }
   void print() const {
      report_.print();
      printTargets( report_ );
   }

 private:
   void eachOrder( const char * part, int n, void ( Benchmark::*measure )( const Order & ) ) {
      if ( !begins( part, n ) ) return;
      ( this->*measure )( shuffled_ );
      ( this->*measure )( sorted_ );
   }

   bool begins( const char * part, int n ) const {
      if ( !options_.wanted( part ) ) return false;
      progress( fmt::format( "{}, {} of {}", part, n + 1, options_.runs ) );
      return true;
   }

   void kernel( const Order & order ) {
      if ( !kernelReason_.empty() ) return;
      if ( const auto samples = measureKernel( order, sizes_, kernelReason_ ) )
         for ( const auto & [ phase, sample ] : *samples )
            report_.work( { phase, order.sorted(), Way::kernel }, sizes_.operations( phase ), sample );
   }

   void agentAlone( const Order & order ) {
      HelperDoer doer( order, Gant::make< SwallowingChannel >() );
      const auto before = allocated();
      measure( doer, Way::agent, order, [ & ]( Phase phase ) {
         if ( phase == Phase::add )
            report_.figure( libraryMemory( order.sorted() ), "bytes a route",
                            double( allocated() - before ) / double( sizes_.routes ) );
      } );
   }

   void endToEnd( const Order & order ) {
      dataPlane_.emplace();
      HelperDoer doer( order, channel() );
      measure( doer, Way::endToEnd, order, [ & ]( Phase phase ) {
         if ( phase != Phase::add ) return;
         verify( dataPlane_->address(), order, doer.adjacencyOf() );
         report_.figure( fmt::format( "data plane resident, {}", orderName( order ) ), "bytes a route",
                         double( residentOf( dataPlane_->pid() ) ) / double( sizes_.routes ) );
      } );
   }

   void fed( const Order & order ) {
      dataPlane_.emplace();
      FedDoer doer( order, channel() );
      measure( doer, Way::fed, order, [ & ]( Phase phase ) {
         if ( phase == Phase::add || phase == Phase::change )
            verify( dataPlane_->address(), order, doer.adjacencyOf() );
      } );
   }

   void floor( const Order & order ) {
      const Recording recording( order, sizes_ );
      dataPlane_.emplace();
      FloorDoer doer( recording, channel() );
      measure( doer, Way::floor, order, []( Phase ) {} );
   }

   void recovery( int n ) {
      if ( !begins( "recovery", n ) ) return;
      dataPlane_.emplace();
      FedDoer doer( shuffled_, channel() );
      runPhase( doer, Phase::add, sizes_.routes );
      dataPlane_->kill();
      const auto start = Clock::now();
      dataPlane_->start();
      doer.restart( channel() );
      report_.figure( recoveryAcknowledged, "ms", secondsSince( start ) * 1e3 );
      verify( dataPlane_->address(), shuffled_, doer.adjacencyOf() );
      report_.figure( recoveryVerified, "ms", secondsSince( start ) * 1e3 );
   }

   Gant::Ptr< Vex::Channel > channel() const { return Gant::make< Vex::GrpcChannel >( dataPlane_->address() ); }

   template < typename After >
   void measure( Doer & doer, Way way, const Order & order, After after ) {
      for ( const auto phase : allPhases ) {
         const Key key{ phase, order.sorted(), way };
         if ( phase == Phase::loneAdjacency || phase == Phase::loneRoute ) {
            report_.latencies( key, alone( doer, phase ) );
            continue;
         }
         const auto there = dataPlane_ ? cpuOf( dataPlane_->pid() ) : 0;
         const auto here = cpuOfThisProcess();
         const auto start = Clock::now();
         runPhase( doer, phase, sizes_.operations( phase ) );
         Sample sample{ secondsSince( start ), cpuOfThisProcess() - here, 0 };
         if ( dataPlane_ ) sample.cpuThere = cpuOf( dataPlane_->pid() ) - there;
         report_.work( key, sizes_.operations( phase ), sample );
         after( phase );
      }
   }

   std::vector< double > alone( Doer & doer, Phase phase ) {
      std::vector< double > seconds;
      for ( std::size_t index = 0; index < sizes_.operations( phase ); ++index ) {
         const auto start = Clock::now();
         doer.step( phase, index, index + 1 );
         runUntilSettled( doer.channel() );
         seconds.push_back( secondsSince( start ) );
      }
      return seconds;
   }

   static const char * orderName( const Order & order ) { return order.sorted() ? "sorted" : "shuffled"; }

   const Options options_;
   const Sizes & sizes_ = options_.sizes;
   const Order shuffled_;
   const Order sorted_;
   Report report_;
   std::string kernelReason_;
   // A new one for each measurement, so that none finds the memory of another.
   std::optional< DataPlane > dataPlane_;
};

} // namespace

int main( int argc, char ** argv ) {
   Options options;
   CLI::App app( "Measures the agent, the way to the data plane, and the kernel beside them." );
   app.add_option( "--routes", options.sizes.routes, "IPv4 prefixes" )->check( CLI::Range( 1000, 4000000 ) );
   app.add_option( "--runs", options.runs, "how often everything is done" )->check( CLI::Range( 1, 100 ) );
   app.add_option( "--only", options.only, "these parts of the work" )->check( CLI::IsMember( parts ) );
   app.add_flag( "--quick", options.quick, "one run with 20,000 routes: shows that it works, and measures little" );
   CLI11_PARSE( app, argc, argv );
   if ( options.quick ) options = { { 20000, 500, 100 }, 1, true, options.only };
   try {
      Benchmark benchmark( options );
      benchmark.run();
      benchmark.print();
      return 0;
   } catch ( const std::exception & error ) {
      fmt::print( stderr, "vexl3_bench: {}\n", error.what() );
      return 1;
   }
}
