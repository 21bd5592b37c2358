// What vexctl does by itself: words, tables, the agent's text.

#include "CtlAgentText.h"
#include "CtlMonitor.h"
#include "CtlShows.h"
#include "NearestWord.h"
#include "RuntimeDirectory.h"
#include "RuntimeMemory.h"

#include <cstring>
#include <filesystem>
#include <gtest/gtest.h>
#include <sstream>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <thread>
#include <unistd.h>

namespace {

using namespace Ctl;

std::string tableOf( const std::vector< Json > & rows ) {
   std::ostringstream out;
   Table table( { text( "Name", "name" ), number( "Number", "number" ), text( "Unused", "unused" ),
                  list( "List", "list", inWords ) },
                out );
   for ( const auto & row : rows ) table.row( row );
   table.end();
   return out.str();
}

TEST( CliTable, alignsColumnsLeavesOutEmptyOnesAndGivesListsALineEach ) {
   EXPECT_EQ( tableOf( {} ), "" );
   EXPECT_EQ( tableOf( { { { "name", "a" }, { "number", 12345678 }, { "list", { "one", "two" } } },
                         { { "name", "longer" }, { "number", 7 } } } ),
              "Name      Number  List\n"
              "a       12345678  one\n"
              "                  two\n"
              "longer         7\n" );
}

TEST( CliTable, goesOnWithTheWidthsOfTheFirstRowsWhenThereAreMany ) {
   std::vector< Json > rows( Table::heldMax, Json{ { "name", "x" }, { "number", 1 } } );
   rows.push_back( { { "name", "wider than before" }, { "unused", "used now" } } );
   const auto out = tableOf( rows );
   EXPECT_NE( out.find( "\nwider than before          used now\n" ), std::string::npos )
        << out.substr( out.size() - 80 );
}

TEST( CliTable, keepsToAWidthByFurtherLinesAndThenByLinesForCells ) {
   const auto within = []( size_t width ) {
      std::ostringstream out;
      Table table( { text( "Name", "name" ), number( "How many", "number" ), text( "Reason", "reason" ) }, out, width );
      table.row( { { "name", "a" }, { "number", 1234 }, { "reason", "the neighbour\x1b is unknown, nobody asks" } } );
      table.end();
      return out.str();
   };
   EXPECT_EQ( within( 40 ), "Name   How  Reason\n"
                            "      many\n"
                            "a     1234  the neighbour. is unknown,\n"
                            "            nobody asks\n" );
   EXPECT_EQ( within( 20 ), "Name      a\n"
                            "How many  1234\n"
                            "Reason    the neighbour. is unknown, nobody asks\n\n" );
}

TEST( CliWords, theNearestOfTheKnownOnesIsNamed ) {
   const std::vector< std::string > words{ "fib", "routes", "neighbors" };
   const std::pair< const char *, const char * > cases[] = {
        { "fbi", "fib" }, { "neigbors", "neighbors" }, { "neighbours", "neighbors" }, { "moon", "" }, { "", "" } };
   for ( const auto & [ given, nearest ] : cases ) EXPECT_EQ( Runtime::nearestWord( given, words ), nearest ) << given;
}

TEST( CliWords, keywordsAndPositionsFillMembersInAnyOrder ) {
   const std::vector< Word > words{ { "vrf", "vrf", "NAME" }, { "", "match", "PREFIX" } };
   const auto members = [ & ]( const std::vector< std::string > & given ) { return membersOf( words, given ).dump(); };
   EXPECT_EQ( members( {} ), "{}" );
   EXPECT_EQ( members( { "10.0.0.1", "vrf", "red" } ), R"({"match":"10.0.0.1","vrf":"red"})" );
   EXPECT_EQ( members( { "vrf", "vrf" } ), R"({"vrf":"vrf"})" );
   EXPECT_THROW( members( { "vrf" } ), Error );
   EXPECT_THROW( members( { "10.0.0.1", "10.0.0.2" } ), Error );
}

TEST( CliAgentText, isReadAsTheAgentWritesIt ) {
   const char * const fib = " 'pModuleFIB1': (  '10.0.0.0/8', ( 'red', 3 ), '10.1.0.0/16', ( 'red', 4 ),"
                            " '10.2.0.0/16', ( 'red', 5 ), '10.3.0.0/16', ( 'red', 6 ), ), # End of pModuleFIB1\n"
                            " 'pModuleFEC1': {  '3': ( 7, 2 ) , '4': ( 1, 2, 3, -1, ), '5': ( ), },"
                            " # End of pModuleFEC1\n";
   std::string rows;
   for ( const auto & row : rowsOfAgentText( fib, {} ) ) rows += row.dump() + "\n";
   EXPECT_EQ( rows, R"({"vrf":"red","prefix":"10.0.0.0/8","fec":3,"nexthops":[{"gate":2,"index":7}]})"
                    "\n"
                    R"({"vrf":"red","prefix":"10.1.0.0/16","fec":4,"nexthops":[{"gate":2,"index":1},{"index":3}]})"
                    "\n"
                    R"({"vrf":"red","prefix":"10.2.0.0/16","fec":5,"nexthops":[]})"
                    "\n"
                    R"({"vrf":"red","prefix":"10.3.0.0/16","fec":6,"fecMissing":true})"
                    "\n" );
   const char * const nexthops = " 'pModule42NH': {  '1': ( 42, 1, 1, '02:00:00:00:00:09' ),\n"
                                 " '2': ( 42, 2, 0, '' ),\n }, # End of pModule42NH\n";
   rows.clear();
   for ( const auto & row : rowsOfAgentText( nexthops, { { "42", "Ethernet1" } } ) ) rows += row.dump() + "\n";
   EXPECT_EQ( rows, R"({"interface":"Ethernet1","index":1,"command":"forward","mac":"02:00:00:00:00:09"})"
                    "\n"
                    R"({"interface":"Ethernet1","index":2,"command":"punt","mac":""})"
                    "\n" );
   for ( const char * broken : { "'a'", "'a': (", "'a: 1", "'a': { 1 }", "nothing" } )
      EXPECT_THROW( parseAgentText( broken ), Error ) << broken;
}

TEST( CliMonitor, ratesAreTheGrowthOfEachRowAndTheBusiestIsFirst ) {
   Rates rates( { "module", "reason" }, { { "packets", "perSecond" }, { "bytes", "bits", 8 } } );
   const auto row = []( const char * reason, int packets ) {
      return Json{ { "module", "fib" }, { "reason", reason }, { "packets", packets }, { "bytes", 10 * packets } };
   };
   std::vector< Json > first{ row( "old", 100 ), row( "began anew", 50 ) };
   EXPECT_FALSE( rates.add( first, 1000 ) );
   std::vector< Json > second{ row( "old", 104 ), row( "began anew", 10 ), row( "new", 6 ) };
   EXPECT_TRUE( rates.add( second, 1002 ) );
   std::string told;
   for ( const auto & each : second )
      told += member( each, "reason" ) + ' ' + each[ "perSecond" ].dump() + ' ' + each[ "bits" ].dump() + '\n';
   EXPECT_EQ( told, "began anew 5.0 400.0\nnew 3.0 240.0\nold 2.0 160.0\n" );
}

class Places : public testing::Test {
 public:
   Places() { mkdtemp( root.data() ); }
   ~Places() override { std::filesystem::remove_all( root ); }
   std::string root = ( std::filesystem::temp_directory_path() / "vexl3-places-XXXXXX" ).string();
   static constexpr uid_t stranger = 65534;
};

TEST_F( Places, aDirectoryThatAStrangerCanWriteToIsRefused ) {
   const auto own = root + "/own", link = root + "/link";
   EXPECT_EQ( Runtime::prepare( own ), "" );
   EXPECT_EQ( Runtime::prepare( own ), "" );
   EXPECT_EQ( symlink( own.c_str(), link.c_str() ), 0 );
   EXPECT_EQ( Runtime::prepare( link ), link + ": it is no directory" );
   EXPECT_EQ( chmod( own.c_str(), 0770 ), 0 );
   EXPECT_EQ( Runtime::prepare( own ), own + ": others can write to it" );
   EXPECT_EQ( Runtime::prepare( root + "/none/deeper" ), root + "/none/deeper: No such file or directory" );
   if ( geteuid() != 0 ) GTEST_SKIP() << "only root makes a directory of somebody else's";
   EXPECT_EQ( chmod( own.c_str(), 0700 ) + chown( own.c_str(), stranger, stranger ), 0 );
   EXPECT_EQ( Runtime::prepare( own ), own + ": it belongs to user 65534" );
}

TEST_F( Places, nothingIsSentToAStrangersServer ) {
   if ( geteuid() != 0 ) GTEST_SKIP() << "only root listens as somebody else";
   const auto path = root + "/vexl3d.sock";
   const int listening = socket( AF_UNIX, SOCK_STREAM, 0 );
   sockaddr_un address{};
   address.sun_family = AF_UNIX;
   std::strcpy( address.sun_path, path.c_str() );
   ASSERT_EQ( bind( listening, reinterpret_cast< const sockaddr * >( &address ), sizeof( address ) ), 0 );
   // The kernel keeps who listened.
   ASSERT_EQ( seteuid( stranger ), 0 );
   const int listened = listen( listening, 1 );
   ASSERT_EQ( seteuid( 0 ), 0 );
   ASSERT_EQ( listened, 0 );
   struct Failed : Answer {
      void row( const Json & ) override {}
      void end( const Json & ) override {}
      void failed( const Error & error ) override { message = error.message; }
      std::string message;
   } answer;
   ask( { path, {} }, { { "command", "show version" } }, answer );
   EXPECT_EQ( answer.message, path + ": what listens there runs as user 65534 (--daemon-user 65534 if that is right)" );
   char byte;
   const int accepted = accept( listening, nullptr, nullptr );
   EXPECT_EQ( recv( accepted, &byte, 1, 0 ), 0 );
   close( accepted );
   close( listening );
}

TEST( MemoryDeathTest, anAllocationThatFailsEndsTheProgramWithOneLine ) {
   const auto program = []( auto end ) {
      Runtime::endWithoutMemory( "program" );
      end();
   };
#ifndef __SANITIZE_ADDRESS__ // which ends the program itself
   volatile size_t much = size_t( 1 ) << 60;
   EXPECT_EXIT( program( [ & ] { ::operator delete( ::operator new( much ) ); } ), testing::ExitedWithCode( 1 ),
                "^program: out of memory\n$" );
#endif
   EXPECT_EXIT( program( [] { std::thread( [] { throw std::bad_alloc(); } ).join(); } ), testing::ExitedWithCode( 1 ),
                "^program: out of memory\n$" );
}

} // namespace
