#include "CtlChanges.h"

#include "NearestWord.h"

#include <charconv>
#include <set>

namespace Ctl {

namespace {

// The words of a change, taken one after the other.
class Words {
 public:
   explicit Words( const std::vector< std::string > & words ) : words_( words ) {}
   bool more() const { return next_ < words_.size(); }
   std::string take( const std::string & what ) {
      if ( !more() ) throw Error{ "usage", what + " is missing" };
      return words_[ next_++ ];
   }
   bool skip( const std::string & word ) {
      if ( !more() || words_[ next_ ] != word ) return false;
      ++next_;
      return true;
   }
   std::uint64_t number( const std::string & what ) {
      const auto word = take( what );
      std::uint64_t number = 0;
      const auto [ end, error ] = std::from_chars( word.data(), word.data() + word.size(), number );
      if ( error != std::errc() || end != word.data() + word.size() )
         throw Error{ "usage", what + ": \"" + word + "\" is no number" };
      return number;
   }
   // `keywords` are those that could have been here.
   void end( const std::vector< std::string > & keywords = {} ) const {
      if ( more() ) throw Error{ "usage", notExpected( words_[ next_ ], keywords ) };
   }
   static std::string notExpected( const std::string & word, const std::vector< std::string > & keywords ) {
      return "\"" + word + "\" is not expected here" + Runtime::didYouMean( word, keywords );
   }

 private:
   const std::vector< std::string > & words_;
   size_t next_ = 0;
};

// What stands behind a keyword: the member of the entry, and its form.
struct Keyword {
   enum class Form { text, number, list };
   const char * member;
   Form form = Form::text;
};

// access-group NAME in|out, service-policy input|output NAME: of what has addresses.
bool fillFilter( Json & entry, Words & words, const std::string & word,
                 const std::map< std::string, Keyword > & keywords ) {
   if ( !keywords.contains( "address" ) ) return false;
   if ( word == "access-group" ) {
      const auto name = words.take( "the access list" );
      entry[ word ][ words.take( "in or out" ) ] = name;
      return true;
   }
   if ( word != "service-policy" ) return false;
   const auto direction = words.take( "input" );
   entry[ word ][ direction ] = words.take( "the policy map" );
   return true;
}

std::vector< std::string > namesOf( const std::map< std::string, Keyword > & keywords ) {
   std::vector< std::string > names{ "disabled", "access-group", "service-policy" };
   for ( const auto & [ name, keyword ] : keywords ) names.push_back( name );
   return names;
}

void fill( Json & entry, Words & words, const std::map< std::string, Keyword > & keywords ) {
   while ( words.more() ) {
      if ( words.skip( "disabled" ) || words.skip( "enabled" ) || words.skip( "no-kernel" ) ) continue;
      const auto word = words.take( "a keyword" );
      if ( fillFilter( entry, words, word, keywords ) ) continue;
      const auto at = keywords.find( word );
      if ( at == keywords.end() ) throw Error{ "usage", Words::notExpected( word, namesOf( keywords ) ) };
      const auto & [ member, form ] = at->second;
      if ( form == Keyword::Form::list )
         entry[ member ].push_back( words.take( word ) );
      else if ( form == Keyword::Form::number )
         entry[ member ] = words.number( word );
      else
         entry[ member ] = words.take( word );
   }
}

Json routeKey( Words & words ) {
   Json entry{ { "prefix", words.take( "the prefix" ) } };
   if ( words.skip( "vrf" ) ) entry[ "vrf" ] = words.take( "the VRF" );
   return entry;
}

// via ADDRESS [dev INTERFACE] [weight N], or dev INTERFACE for a way without an address.
Json via( Words & words, bool address ) {
   Json via;
   if ( address ) via[ "nexthop" ] = words.take( "the next hop" );
   if ( !address || words.skip( "dev" ) ) via[ "interface" ] = words.take( "the interface" );
   if ( words.skip( "weight" ) ) via[ "weight" ] = words.number( "weight" );
   return via;
}

Json route( const std::vector< std::string > & given ) {
   Words words( given );
   auto entry = routeKey( words );
   while ( words.more() ) {
      if ( words.skip( "via" ) )
         entry[ "via" ].push_back( via( words, true ) );
      else if ( words.skip( "dev" ) )
         entry[ "via" ].push_back( via( words, false ) );
      else if ( words.skip( "blackhole" ) )
         entry[ "blackhole" ] = true;
      else if ( words.skip( "receive" ) )
         entry[ "receive" ] = words.take( "the interface" );
      else if ( words.skip( "vrf" ) )
         entry[ "vrf" ] = words.take( "the VRF" );
      else
         words.end( { "via", "dev", "blackhole", "receive", "vrf", "weight" } );
   }
   return entry;
}

Json routeOnly( const std::vector< std::string > & given ) {
   Words words( given );
   auto entry = routeKey( words );
   words.end();
   return entry;
}

Json neighborKey( Words & words ) {
   Json entry{ { "interface", words.take( "the interface" ) } };
   entry[ "address" ] = words.take( "the address" );
   return entry;
}

Json neighbor( const std::vector< std::string > & given ) {
   Words words( given );
   auto entry = neighborKey( words );
   entry[ "mac" ] = words.take( "the MAC" );
   words.end();
   return entry;
}

Json neighborOnly( const std::vector< std::string > & given ) {
   Words words( given );
   auto entry = neighborKey( words );
   words.end();
   return entry;
}

Json nameOnly( const std::vector< std::string > & given ) {
   Words words( given );
   Json entry{ { "name", words.take( "the name" ) } };
   words.end();
   return entry;
}

Json virtualMac( const std::vector< std::string > & given ) {
   Words words( given );
   Json entry{ { "interface", words.take( "the interface" ) } };
   entry[ "mac" ] = words.take( "the MAC" );
   words.end();
   return entry;
}

Json vlanOnly( const std::vector< std::string > & given ) {
   Words words( given );
   Json entry{ { "id", words.number( "the VLAN" ) } };
   words.end();
   return entry;
}

Json vlan( const std::vector< std::string > & given ) {
   Words words( given );
   Json entry{ { "id", words.number( "the VLAN" ) } };
   while ( words.skip( "member" ) ) entry[ "members" ].push_back( words.take( "the member" ) );
   words.end();
   return entry;
}

using Keywords = std::map< std::string, Keyword >;

Json named( const std::vector< std::string > & given, const Keywords & keywords ) {
   Words words( given );
   Json entry{ { "name", words.take( "the name" ) } };
   fill( entry, words, keywords );
   const std::set< std::string > all( given.begin(), given.end() );
   if ( all.contains( "disabled" ) ) entry[ "enabled" ] = false;
   if ( all.contains( "no-kernel" ) ) entry[ "kernel" ] = false;
   return entry;
}

Json interface( const std::vector< std::string > & given ) {
   static const Keywords keywords{ { "vrf", { "vrf" } },
                                   { "address", { "addresses", Keyword::Form::list } },
                                   { "mtu", { "mtu", Keyword::Form::number } },
                                   { "mss", { "mss", Keyword::Form::number } },
                                   { "mac", { "mac" } },
                                   { "device", { "device" } },
                                   { "driver", { "driver" } } };
   return named( given, keywords );
}

Json tunnel( const std::vector< std::string > & given ) {
   static const Keywords keywords{ { "vrf", { "vrf" } },
                                   { "address", { "addresses", Keyword::Form::list } },
                                   { "mtu", { "mtu", Keyword::Form::number } },
                                   { "mss", { "mss", Keyword::Form::number } },
                                   { "mode", { "mode" } },
                                   { "source", { "source" } },
                                   { "key", { "key", Keyword::Form::number } },
                                   { "destination", { "destination" } },
                                   { "underlay", { "underlay" } },
                                   { "ttl", { "ttl", Keyword::Form::number } },
                                   { "tos", { "tos", Keyword::Form::number } } };
   return named( given, keywords );
}

Json vrf( const std::vector< std::string > & given ) {
   static const Keywords keywords{ { "id", { "id", Keyword::Form::number } }, { "netns", { "netns" } } };
   return named( given, keywords );
}

Json accessList( const std::vector< std::string > & given ) {
   Words words( given );
   Json entry{ { "name", words.take( "the name" ) } };
   if ( words.skip( "type" ) ) entry[ "type" ] = words.take( "the type" );
   entry[ "rules" ] = Json::array();
   while ( words.more() ) entry[ "rules" ].push_back( words.take( "a rule" ) );
   return entry;
}

Json classMap( const std::vector< std::string > & given ) {
   Words words( given );
   Json entry{ { "name", words.take( "the name" ) } };
   words.skip( "match" );
   const auto what = words.take( "access-list" );
   do entry[ "match" ][ what ].push_back( words.take( "what it matches" ) );
   while ( words.more() );
   return entry;
}

Json policyMap( const std::vector< std::string > & given ) {
   Words words( given );
   Json entry{ { "name", words.take( "the name" ) } };
   while ( words.more() ) {
      if ( words.skip( "class" ) )
         entry[ "classes" ].push_back( { { "class", words.take( "the class" ) } } );
      else if ( words.skip( "set" ) && entry.contains( "classes" ) ) {
         const auto what = words.take( "what is set" );
         entry[ "classes" ].back()[ "set" ][ what ] = words.take( what );
      } else
         throw Error{ "usage", "\"" + words.take( "class" ) + "\" is not expected here" };
   }
   return entry;
}

} // namespace

const std::vector< Kind > & kinds() {
   static const std::vector< Kind > all{
        { "route", "a route",
          "PREFIX [vrf NAME] via ADDRESS [dev INTERFACE] [weight N] ... | dev INTERFACE | blackhole | receive "
          "INTERFACE",
          route, routeOnly },
        { "neighbor", "a neighbour", "INTERFACE ADDRESS MAC", neighbor, neighborOnly },
        { "interface", "an interface",
          "NAME [vrf NAME] [address ADDRESS/LEN]... [mtu N] [mss N] [mac MAC] [device DEVICE [driver "
          "af_packet|af_xdp]] "
          "[access-group LIST in|out]... [service-policy input POLICY] [no-kernel] [disabled]",
          interface, nameOnly },
        { "tunnel", "a tunnel",
          "NAME source ADDRESS destination ADDRESS [vrf NAME] [underlay VRF] [address ADDRESS/LEN]... [key N] [ttl N] "
          "[tos N] [mtu N] [mss N] [mode MODE] [access-group LIST in|out]... [service-policy input POLICY] [no-kernel] "
          "[disabled]",
          tunnel, nameOnly },
        { "vlan", "a VLAN", "N [member INTERFACE|Cpu]...", vlan, vlanOnly },
        { "virtual-mac", "a virtual router's MAC", "INTERFACE MAC", virtualMac, virtualMac },
        { "vrf", "a VRF", "NAME [id N] [netns NAME]", vrf, nameOnly },
        { "access-list", "an access list", "NAME [type ip|mac] \"[SEQUENCE] permit|deny|remark ...\"...", accessList,
          nameOnly },
        { "class-map", "a class map", "NAME match access-list LIST...", classMap, nameOnly },
        { "policy-map", "a policy map", "NAME {class CLASS [set dscp N] [set traffic-class N]}...", policyMap,
          nameOnly } };
   return all;
}

} // namespace Ctl
