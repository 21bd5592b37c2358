#include "HostSection.h"

#include <algorithm>

namespace Host {

const std::vector< std::unique_ptr< const Section > > & sections() {
   static const auto all = [] {
      std::vector< std::unique_ptr< const Section > > made;
      made.push_back( routerMacSection() );
      made.push_back( vrfSection() );
      made.push_back( accessListSection() );
      made.push_back( classMapSection() );
      made.push_back( policyMapSection() );
      made.push_back( intfSection() );
      made.push_back( tunnelSection() );
      made.push_back( ipsecSection() );
      made.push_back( neighborSection() );
      made.push_back( vlanSection() );
      made.push_back( virtualMacSection() );
      made.push_back( natSection() );
      made.push_back( routeSection() );
      return made;
   }();
   return all;
}

const Section & sectionOfKind( const std::string & kind ) {
   std::string all;
   for ( const auto & section : sections() ) {
      if ( section->kind() == kind ) return *section;
      all += ( all.empty() ? "" : ", " ) + std::string( section->kind() );
   }
   throw EntryError( "there is no kind " + quoted( kind ) + "; kinds are " + all, 0 );
}

} // namespace Host
