// Measures access lists, from the user's lists to the encoded commands, with no data plane behind them: 100 lists of
// 1,000 rules on 100 interfaces, then a change of 10 of the lists, and the reading of every rule's counter.
//
//    acl_bench [lists, 1 to 128 [rules of each, 1 to 5000]]
#include "GantActivity.h"
#include "HulAclSm.h"
#include "vex/counter_table.h"
#include "VexAclSm.h"
#include "VexPortModules.h"

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <google/protobuf/arena.h>
#include <google/protobuf/message.h>
#include <unistd.h>

namespace {

// Encodes what it is given and forgets it.
class CountingChannel : public Vex::Channel {
 public:
   using OriginId = Vex::Channel::OriginId;
   void createModule( OriginId, const Gant::String &, const char *, const Message * ) override { ++requests; }
   void destroyModule( OriginId, const Gant::String & ) override { ++requests; }
   void connectModules( OriginId, const Gant::String &, Vex::GateId, const Gant::String &, Vex::GateId ) override {
      ++requests;
   }
   void disconnectModules( OriginId, const Gant::String &, Vex::GateId ) override { ++requests; }
   void command( OriginId, std::string_view, std::string_view, const Message & message, bool ) override {
      ++requests;
      ++commands;
      bytes += message.SerializeAsString().size();
   }
   google::protobuf::Arena & arena() override {
      arena_.Reset();
      return arena_;
   }

   size_t requests = 0;
   size_t commands = 0;
   size_t bytes = 0; // of the commands' messages

 private:
   google::protobuf::Arena arena_;
};

// A counter table of one writer, every count 1.
class CounterFile {
 public:
   CounterFile() :
        path_( std::filesystem::temp_directory_path().string() + "/acl_bench_counters." + std::to_string( getpid() ) ) {
      std::ofstream out( path_, std::ios::binary );
      const vex::counters::Header header{ vex::counters::kMagic, 1, vex::counters::kSlots, vex::counters::kOffset };
      out.write( reinterpret_cast< const char * >( &header ), sizeof( header ) );
      out.seekp( vex::counters::kOffset );
      const std::vector< U64 > counts( vex::counters::kSlots, 1 );
      out.write( reinterpret_cast< const char * >( counts.data() ),
                 static_cast< std::streamsize >( counts.size() * sizeof( U64 ) ) );
   }
   ~CounterFile() { unlink( path_.c_str() ); }
   const std::string & path() const { return path_; }

 private:
   std::string path_;
};

class Bench {
 public:
   Bench( U32 lists, U32 rules ) : lists_( lists ), rules_( rules ) {
      vexcsd_->kyAclDbIs( Gant::make< Vex::KyAclDb >( pair_ ) );
      if ( const auto error = counts_->map( file_.path() ); !error.empty() ) {
         std::fprintf( stderr, "%s\n", error.c_str() );
         std::exit( 1 );
      }
      status_->initialize();
      sm_->startIs( true );
      drain();
   }

   void run() {
      std::printf( "%u lists of %u rules, each on an interface\n", lists_, rules_ );
      std::printf( "%-34s %10s %10s %12s %10s %10s\n", "", "requests", "commands", "bytes", "wall ms", "cpu ms" );
      measure( "the lists enter the state", [ & ] {
         for ( U32 i = 0; i < lists_; ++i ) config_->aclConfigIs( key( i ), newList( i ) );
         drain();
      } );
      measure( "applied: built, committed, bound", [ & ] {
         for ( U32 i = 0; i < lists_; ++i )
            bindings_->aclNameIs(
                 Acl::IntfAclKey( Kynet::IntfId( Kynet::IntfType::ethernet(), U16( i + 1 ) ), Acl::ip, Acl::in ),
                 key( i ).name() );
         drain();
      } );
      const auto changed = std::min< U32 >( 10, lists_ );
      measure( Gant::format( "a rule of %u of them changes", changed ).c_str(), [ & ] {
         for ( U32 i = 0; i < changed; ++i ) {
            auto entries = config_->aclConfig( key( i ) )->entries();
            entries.begin()->second.rule.logIs( true );
            config_->aclConfig( key( i ) )->entriesIs( std::move( entries ) );
         }
         drain();
      } );
      size_t read = 0;
      measure( "every rule's counter is read", [ & ] {
         for ( U32 i = 0; i < lists_; ++i ) read += sm_->counts( key( i ) ).size();
      } );
      std::printf( "%zu counters read\n", read );
   }

 private:
   static Acl::ListKey key( U32 number ) { return Acl::ListKey( Acl::ip, Gant::format( "list%03u", number ) ); }

   Gant::Ptr< Acl::AclConfig > newList( U32 number ) const {
      Acl::Entries entries;
      for ( U32 i = 0; i < rules_; ++i ) {
         Acl::IpFilter filter;
         filter.protoIs( 6 );
         filter.sourceIs(
              Kynet::IpAddrWithFullMask( Kynet::IpAddr( 0x0a000000 + number * 65536 + i * 8 ), ~U32( 7 ) ) );
         filter.destinationPortIs( Acl::RangeSpec( Acl::RangeOper::eq_, { U16( 1 + i ) } ) );
         entries[ ( i + 1 ) * 10 ].rule = Acl::RuleConfig( i % 3 ? Acl::permit : Acl::deny, false, filter );
      }
      const auto list = Gant::make< Acl::AclConfig >( key( number ) );
      list->entriesIs( std::move( entries ) );
      return list;
   }

   static void drain() {
      while ( Gant::activityManager()->poll() != 0 ) {
      }
   }

   template < typename Work >
   void measure( const char * what, const Work & work ) {
      const auto requests = channel_->requests;
      const auto commands = channel_->commands;
      const auto bytes = channel_->bytes;
      const auto cpu = std::clock();
      const auto begin = std::chrono::steady_clock::now();
      work();
      const std::chrono::duration< double, std::milli > wall = std::chrono::steady_clock::now() - begin;
      std::printf( "%-34s %10zu %10zu %12zu %10.2f %10.2f\n", what, channel_->requests - requests,
                   channel_->commands - commands, channel_->bytes - bytes, wall.count(),
                   1e3 * static_cast< double >( std::clock() - cpu ) / CLOCKS_PER_SEC );
   }

   const U32 lists_;
   const U32 rules_;
   CounterFile file_;
   Gant::Ptr< CountingChannel > channel_ = Gant::make< CountingChannel >();
   Gant::Ptr< Vex::ModuleGlobalCmdConfig > global_ = Gant::make< Vex::ModuleGlobalCmdConfig >( channel_ );
   Gant::Ptr< Vex::ModuleConfigStatusPair > pair_ = global_->moduleConfigStatusPairIs( "engine" );
   Gant::Ptr< VexModules::MirelCounterDbStatus > counts_ = Gant::make< VexModules::MirelCounterDbStatus >();
   Gant::Ptr< Vex::VexCommonSmData > vexcsd_ = Gant::make< Vex::VexCommonSmData >(
        global_, Gant::make< Vex::TrapModule >( pair_ ), Gant::make< Vex::BessCounterInfo >( vex::counters::kSlots ) );
   Gant::Ptr< Acl::Config > config_ = Gant::make< Acl::Config >();
   Gant::Ptr< Acl::IntfConfig > bindings_ = Gant::make< Acl::IntfConfig >();
   Gant::Ptr< Acl::StatusDp > status_ = Gant::make< Acl::StatusDp >();
   Gant::Ptr< Vex::AclHelper > helper_ = Gant::make< Vex::AclHelper >( vexcsd_, config_, status_, counts_ );
   Gant::Ptr< Hul::AclSm > sm_ =
        Gant::make< Hul::AclSm >( Hul::AclSm::Args{ .vexcsd = vexcsd_,
                                                    .aclConfig = config_,
                                                    .aclIntfConfigCli = bindings_,
                                                    .aclStatusDp = status_,
                                                    .aclHelper = helper_,
                                                    .clock = Gant::activityManager()->clock() } );
};

} // namespace

int main( int argc, char ** argv ) {
   const long lists = argc > 1 ? std::atol( argv[ 1 ] ) : 100;
   const long rules = argc > 2 ? std::atol( argv[ 2 ] ) : 1000;
   if ( argc > 3 || lists < 1 || lists > 128 || rules < 1 || rules > 5000 ) {
      std::fprintf( stderr, "usage: %s [lists, 1 to 128 [rules of each, 1 to 5000]]\n", argv[ 0 ] );
      return 2;
   }
   Bench( static_cast< U32 >( lists ), static_cast< U32 >( rules ) ).run();
   return 0;
}
