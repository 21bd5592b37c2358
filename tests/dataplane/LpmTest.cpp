#include "DpLpm.h"

#include "DpTestSupport.h"

#include <map>
#include <random>

namespace {

using namespace Vexdp;

using Insert = Lpm::Insert;

// Longest match by looking at every length.
class Model {
 public:
   std::map< Ipv4Prefix, std::uint32_t > routes;

   std::optional< Lpm::Route > lookup( std::uint32_t addr ) const {
      for ( int len = 32; len >= 0; --len ) {
         const auto at = routes.find( { { addr & maskOf( unsigned( len ) ) }, std::uint8_t( len ) } );
         if ( at != routes.end() ) return Lpm::Route{ at->first, at->second };
      }
      return std::nullopt;
   }
};

std::string text( const std::optional< Lpm::Route > & route ) {
   return route ? fmt::format( "{} -> {}", route->prefix, route->value ) : "none";
}

std::string found( const Lpm & lpm, const char * addr ) { return text( lpm.lookup( { DpTest::ip( addr ) } ) ); }

TEST( Lpm, aFullTableStillReplaces ) {
   LpmPool pool;
   Lpm lpm( pool );
   const auto there = DpTest::prefix( "10.0.0.0/30" );
   const auto other = DpTest::prefix( "10.0.0.4/30" );
   EXPECT_EQ( lpm.insert( there, 1, true ), Insert::added );
   EXPECT_EQ( lpm.insert( other, 2, false ), Insert::full );
   EXPECT_EQ( lpm.insert( there, 3, false ), Insert::replaced );
   EXPECT_EQ( lpm.size(), 1u );
   EXPECT_EQ( lpm.exact( other ), std::nullopt );
   EXPECT_EQ( found( lpm, "10.0.0.5" ), "none" );
   EXPECT_EQ( found( lpm, "10.0.0.1" ), "10.0.0.0/30 -> 3" );
}

// Tables over one pool, changed at random, against the model: at both ends of every changed prefix and just outside it,
// where a wrong range shows, and at random. Addresses are few, so that prefixes nest and collide.
class LpmRandom : public testing::TestWithParam< unsigned > {
 protected:
   static constexpr std::size_t kTables = 3;

   struct Table {
      explicit Table( LpmPool & pool ) : lpm( pool ) {}
      Lpm lpm;
      Model model;
   };

   LpmRandom() {
      for ( std::size_t i = 0; i < kTables; ++i ) tables_.push_back( std::make_unique< Table >( pool_ ) );
   }

   std::uint32_t below( std::uint32_t limit ) {
      return std::uniform_int_distribution< std::uint32_t >( 0, limit - 1 )( random_ );
   }

   std::uint32_t randomAddr() {
      static constexpr std::uint32_t kBases[] = { 0x00000000, 0x0a000000, 0x0a010000,
                                                  0x0a010200, 0xc0a80100, 0xffffff00 };
      const std::uint32_t noise = below( 4 ) == 0 ? std::uint32_t( random_() ) : below( 1024 );
      return kBases[ below( std::size( kBases ) ) ] ^ noise;
   }

   Ipv4Prefix randomPrefix() {
      static constexpr std::uint8_t kLengths[] = { 0, 1, 7, 8, 15, 16, 17, 20, 23, 24, 25, 28, 31, 32 };
      const auto len = below( 3 ) == 0 ? std::uint8_t( below( 33 ) ) : kLengths[ below( std::size( kLengths ) ) ];
      return { { randomAddr() & maskOf( len ) }, len };
   }

   static void expectSame( const Table & table, std::uint32_t addr ) {
      ASSERT_EQ( text( table.lpm.lookup( { addr } ) ), text( table.model.lookup( addr ) ) )
           << fmt::format( "{}", Ipv4Addr{ addr } );
   }

   static void expectSameAround( const Table & table, Ipv4Prefix prefix ) {
      const auto first = prefix.addr.value;
      const auto last = first | ~maskOf( prefix.len );
      for ( const auto addr : { first, last, first - 1, last + 1 } ) expectSame( table, addr );
      ASSERT_EQ( table.lpm.exact( prefix ).has_value(), table.model.routes.contains( prefix ) );
   }

   void change( Table & table ) {
      const auto prefix = randomPrefix();
      const bool there = table.model.routes.contains( prefix );
      if ( below( 5 ) < 2 ) {
         ASSERT_EQ( table.lpm.remove( prefix ), there );
         table.model.routes.erase( prefix );
      } else {
         const auto value = below( 100 );
         ASSERT_EQ( table.lpm.insert( prefix, value, true ), there ? Insert::replaced : Insert::added );
         table.model.routes[ prefix ] = value;
      }
      expectSameAround( table, prefix );
      expectSame( table, randomAddr() );
   }

   LpmPool pool_;
   std::vector< std::unique_ptr< Table > > tables_;
   std::mt19937 random_{ GetParam() };
};

TEST_P( LpmRandom, agreesWithTheModelAndGivesEveryBlockBack ) {
   for ( int i = 0; i < 20000 && !HasFatalFailure(); ++i ) change( *tables_[ below( kTables ) ] );
   ASSERT_GT( pool_.inUse(), 0u );

   // One table goes with all that is in it, the others prefix by prefix.
   tables_.pop_back();
   for ( const auto & table : tables_ ) {
      ASSERT_EQ( table->lpm.routes().size(), table->model.routes.size() );
      for ( const auto & route : table->lpm.routes() ) {
         ASSERT_EQ( table->model.routes.at( route.prefix ), route.value );
         ASSERT_TRUE( table->lpm.remove( route.prefix ) );
         table->model.routes.erase( route.prefix );
         expectSameAround( *table, route.prefix );
      }
   }
   EXPECT_EQ( pool_.inUse(), 0u );
}

INSTANTIATE_TEST_SUITE_P( Seeds, LpmRandom, testing::Values( 1u, 2u, 3u, 4u ) );

} // namespace
