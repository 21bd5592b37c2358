#include "DpTestSupport.h"

#include "DpCounterTable.h"
#include "DpRegistry.h"
#include "Process.h"

#include "vex/counter_table.h"
#include "vex/fib_ipv4.pb.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <google/protobuf/descriptor.h>

#include <csignal>
#include <filesystem>
#include <fstream>
#include <random>

namespace {

using namespace DpTest;
using google::protobuf::FieldDescriptor;
using google::protobuf::Message;

std::vector< vex::pb::Batch > batchesOf( const Vexdp::Engine & engine ) {
   std::unique_ptr< Vexdp::Dump > dump;
   EXPECT_TRUE( engine.dump( {}, dump ).ok() );
   std::vector< vex::pb::Batch > batches;
   dump->tell( [ &batches ]( const vex::pb::Batch & batch ) {
      batches.push_back( batch );
      return true;
   } );
   return batches;
}

// Messages of any type with values at the edges of their ranges.
class RandomMessages {
 public:
   explicit RandomMessages( unsigned seed ) : random_( seed ) {}

   unsigned below( unsigned limit ) { return unsigned( random_() % limit ); }

   std::unique_ptr< Message > like( const Message & prototype ) {
      std::unique_ptr< Message > message( prototype.New() );
      fill( *message );
      return message;
   }

 private:
   std::uint32_t number() {
      static constexpr std::uint32_t kNumbers[] = { 0,    1,    2,     5,     16,    24,    32,         33,
                                                    1023, 1024, 65535, 65536, 16383, 16384, 0x0a000000, 0xffffffff };
      return below( 4 ) == 0 ? std::uint32_t( random_() ) >> below( 32 ) : kNumbers[ below( std::size( kNumbers ) ) ];
   }

   void fill( Message & message ) {
      const auto & descriptor = *message.GetDescriptor();
      for ( int i = 0; i < descriptor.field_count(); ++i ) {
         const auto & field = *descriptor.field( i );
         if ( below( 8 ) == 0 ) continue;
         for ( unsigned n = field.is_repeated() ? below( 4 ) : 1; n > 0; --n ) fill( message, field );
      }
   }

   void fill( Message & message, const FieldDescriptor & field ) {
      const auto & reflection = *message.GetReflection();
      switch ( field.cpp_type() ) {
      case FieldDescriptor::CPPTYPE_UINT32: return reflection.SetUInt32( &message, &field, number() );
      case FieldDescriptor::CPPTYPE_INT32: return reflection.SetInt32( &message, &field, int( number() ) );
      case FieldDescriptor::CPPTYPE_UINT64: return reflection.SetUInt64( &message, &field, number() );
      case FieldDescriptor::CPPTYPE_BOOL: return reflection.SetBool( &message, &field, below( 2 ) == 0 );
      case FieldDescriptor::CPPTYPE_STRING:
         return reflection.SetString( &message, &field, std::string( below( 4 ) == 0 ? below( 9 ) : 6, 'a' ) );
      case FieldDescriptor::CPPTYPE_MESSAGE:
         return fill( *( field.is_repeated() ? reflection.AddMessage( &message, &field )
                                             : reflection.MutableMessage( &message, &field ) ) );
      default: FAIL() << "no random value for " << field.full_name();
      }
   }

   std::mt19937 random_;
};

// Whatever is sent, a data plane stays in a state that its dump rebuilds.
class DumpRandom : public testing::TestWithParam< unsigned > {};

TEST_P( DumpRandom, rebuildsWhereverRequestsLed ) {
   RandomMessages messages( GetParam() );
   Plane first, second;
   unsigned applied = 0;
   for ( unsigned i = 0; i < 4000; ++i ) {
      const auto & mclass = *Vexdp::moduleClasses()[ messages.below( unsigned( Vexdp::moduleClasses().size() ) ) ];
      const auto name = mclass.name + std::to_string( messages.below( 2 ) );
      vex::pb::Batch batch;
      auto & request = *batch.add_request();
      const unsigned kind = messages.below( 12 );
      if ( kind == 0 ) {
         request.mutable_create_module()->set_name( name );
         request.mutable_create_module()->set_mclass( mclass.name );
         request.mutable_create_module()->mutable_arg()->PackFrom( *messages.like( *mclass.init ) );
      } else if ( kind == 1 ) {
         auto & connect = *request.mutable_connect_modules();
         connect.set_m1( name );
         connect.set_ogate( messages.below( 4 ) );
         connect.set_m2( Vexdp::moduleClasses()[ messages.below( unsigned( Vexdp::moduleClasses().size() ) ) ]->name +
                         "0" );
         connect.set_igate( messages.below( 3 ) );
      } else if ( kind == 2 && messages.below( 8 ) == 0 ) {
         request.mutable_destroy_module()->set_name( name );
      } else if ( !mclass.commands.empty() ) {
         const auto & command = mclass.commands[ messages.below( unsigned( mclass.commands.size() ) ) ];
         auto & run = *request.mutable_command();
         run.set_module( name );
         run.set_cmd( command.name );
         run.set_type( Vexdp::typeName( *command.arg ) );
         messages.like( *command.arg )->SerializeToString( run.add_arg() );
      }
      vex::pb::BatchReply reply;
      first.engine.apply( batch, reply );
      if ( reply.refusal_size() == 0 ) ++applied;
   }
   EXPECT_GT( applied, 500u );

   const auto batches = batchesOf( first.engine );
   for ( const auto & batch : batches ) {
      vex::pb::BatchReply reply;
      second.engine.apply( batch, reply );
      ASSERT_EQ( refusals( reply ), Lines() );
   }
   EXPECT_EQ( second.dump(), first.dump() );
}

INSTANTIATE_TEST_SUITE_P( Seeds, DumpRandom, testing::Values( 1u, 2u, 3u ) );

TEST( Dump, isACopyInBatchesOfLimitedSizeThatCarryTheLastNumber ) {
   Plane plane;
   plane.set( "create fib FibIpv4\n fib addVrf vrf: 0" );
   std::string routes;
   for ( unsigned i = 0; i < 10000; ++i )
      routes += fmt::format( "fib addRoute vrf: 0 prefix: {} prefix_len: 32 fec_id: 1\n", i * 7919 );
   vex::pb::BatchReply reply;
   plane.engine.apply( plane.reader.batch( routes, 41 ), reply );

   std::unique_ptr< Vexdp::Dump > dump;
   ASSERT_TRUE( plane.engine.dump( {}, dump ).ok() );
   // Whatever happens now, the dump tells what was.
   plane.engine.reset();
   std::vector< int > sizes;
   std::uint32_t last = 0;
   dump->tell( [ & ]( const vex::pb::Batch & batch ) {
      int size = 0;
      for ( const auto & request : batch.request() ) {
         size += request.has_command() ? request.command().arg_size() : 1;
         for ( const auto & bytes : request.command().arg() ) {
            vex::pb::FibIpv4RouteArg route;
            if ( request.command().cmd() != "addRoute" ) continue;
            EXPECT_TRUE( route.ParseFromString( bytes ) );
            EXPECT_GE( route.prefix(), last );
            last = route.prefix();
         }
      }
      sizes.push_back( size );
      EXPECT_EQ( batch.number(), 41u );
      return true;
   } );
   EXPECT_EQ( sizes, ( std::vector< int >{ 4096, 4096, 1810 } ) );
   EXPECT_EQ( last, 9999u * 7919u );

   // A reader that goes is not told the rest, and an empty data plane has one batch to say so.
   int told = 0;
   dump->tell( [ &told ]( const auto & ) { return ++told < 2; } );
   EXPECT_EQ( told, 2 );
   EXPECT_EQ( batchesOf( plane.engine ).size(), 1u );
}

// The file, as another process sees it.
class CounterFile : public testing::Test {
 protected:
   std::string failure() const {
      try {
         const Vexdp::CounterTable table( path_ );
         return "";
      } catch ( const std::exception & error ) {
         const std::string text = error.what();
         return text.substr( text.find( ": " ) + 2 );
      }
   }

   const ::Test::Directory directory_;
   std::string path_ = directory_.path( "counters" );
};

TEST_F( CounterFile, hasTheLayoutThatReadersMapAndGoesWithItsOwner ) {
   using namespace vex::counters;
   {
      Vexdp::CounterTable table( path_ );
      EXPECT_EQ( table.path(), path_ );
      table.add( 3, 5 );
      table.add( kSlots - 1 );
      table.add( kSlots );
      table.add( Vexdp::kNoCounter );

      const int fd = open( path_.c_str(), O_RDONLY );
      struct stat status {};
      ASSERT_EQ( fstat( fd, &status ), 0 );
      ASSERT_EQ( std::size_t( status.st_size ), kOffset + kSlots * 8ul );
      EXPECT_GE( status.st_blocks * 512, status.st_size ) << "pages that the file system may have no room for";
      const auto * map =
           static_cast< const char * >( mmap( nullptr, std::size_t( status.st_size ), PROT_READ, MAP_SHARED, fd, 0 ) );
      const auto & header = *reinterpret_cast< const Header * >( map );
      EXPECT_EQ( header.magic, kMagic );
      EXPECT_EQ( header.writers, 1u );
      EXPECT_EQ( header.slots, kSlots );
      EXPECT_EQ( header.offset, kOffset );
      const auto * counts = reinterpret_cast< const std::uint64_t * >( map + kOffset );
      EXPECT_EQ( counts[ 3 ], 5u );
      EXPECT_EQ( counts[ kSlots - 1 ], 1u );
      table.clear();
      EXPECT_EQ( counts[ 3 ] + counts[ kSlots - 1 ], 0u );
      munmap( const_cast< char * >( map ), std::size_t( status.st_size ) );
      close( fd );
   }
   EXPECT_FALSE( std::filesystem::exists( path_ ) );
}

TEST_F( CounterFile, comesWhenThereIsRoomForIt ) {
   std::signal( SIGXFSZ, SIG_IGN );
   rlimit before{};
   getrlimit( RLIMIT_FSIZE, &before );
   auto small = before;
   small.rlim_cur = 1 << 20;
   setrlimit( RLIMIT_FSIZE, &small );
   Vexdp::CounterTable table( path_, 2 );
   table.add( 3, 5 );
   table.writer( 1 ).add( 3, 7 );
   EXPECT_EQ( table.share(), "counter file " + path_ + ": File too large" );
   EXPECT_TRUE( directory_.empty() );
   setrlimit( RLIMIT_FSIZE, &before );
   EXPECT_EQ( table.share(), "" );
   EXPECT_TRUE( table.shared() && std::filesystem::exists( path_ ) );
   EXPECT_EQ( table.value( 3 ), 12u );
   table.writer( 1 ).add( 3 );
   EXPECT_EQ( table.value( 3 ), 13u );
   table.clear();
   EXPECT_EQ( table.value( 3 ), 0u );
}

TEST_F( CounterFile, takesNothingFromAnybodyElse ) {
   {
      const Vexdp::CounterTable holder( path_ );
      EXPECT_EQ( failure(), "in use by another process" );
      std::filesystem::copy( path_, path_ + "2" );
   }
   // What a process left that was killed, byte for byte.
   std::filesystem::rename( path_ + "2", path_ );
   EXPECT_EQ( failure(), "" );
   // And what one left that was killed before the header was there.
   for ( const std::size_t size : { 0ul, 1ul, 4096ul, vex::counters::kOffset + vex::counters::kSlots * 8ul } )
      for ( const char * name : { "", ".new" } ) {
         std::ofstream( path_ + name ).close();
         std::filesystem::resize_file( path_ + name, size );
         EXPECT_EQ( failure(), "" ) << size << name;
         EXPECT_TRUE( directory_.empty() );
      }
   std::ofstream( path_ ) << "somebody's notes, longer than a header of a counter table would be";
   EXPECT_EQ( failure(), "exists and is not a counter table" );
   EXPECT_TRUE( std::filesystem::exists( path_ ) );
   path_ += "/below";
   EXPECT_EQ( failure(), "Not a directory" );
}

} // namespace
