#include "VexL3Types.h"

#include "GantAssert.h"

#include <algorithm>

namespace VexL3Unicast {

void PrefixRecords::routeIs( const Hul::VrfAndIpGenPrefix & prefix, Gant::Ptr< RouteInfo > routeInfo ) {
   if ( !routeInfo ) return routeDel( prefix );
   auto & record = *records_.tryEmplace( prefix ).first;
   routes_ += !record.routeInfo;
   record.routeInfo = std::move( routeInfo );
}

void PrefixRecords::routeDel( const Hul::VrfAndIpGenPrefix & prefix ) {
   auto * const record = records_.get( prefix );
   if ( record == nullptr || !record->routeInfo ) return;
   --routes_;
   record->routeInfo = nullptr;
   forgetEmpty( prefix, *record );
}

bool PrefixRecords::fecIs( const Hul::VrfAndIpGenPrefix & prefix, FecKey fecKey ) {
   auto & record = *records_.tryEmplace( prefix ).first;
   if ( record.isOn( fecKey ) ) return false;
   auto & place = record.fecKeys[ !record.fecKeys[ 0 ] ? 0 : 1 ];
   GANT_ASSERT( !place, " vrfprefix ", prefix, " fecKey ", fecKey );
   place = fecKey;
   return true;
}

bool PrefixRecords::fecDel( const Hul::VrfAndIpGenPrefix & prefix, FecKey fecKey ) {
   auto * const record = records_.get( prefix );
   if ( record == nullptr || !record->isOn( fecKey ) ) return false;
   record->fecKeys[ record->fecKeys[ 0 ] == fecKey ? 0 : 1 ] = FecKey::null();
   forgetEmpty( prefix, *record );
   return true;
}

bool PrefixRecords::fecHas( const Hul::VrfAndIpGenPrefix & prefix, FecKey fecKey ) const {
   const auto * const record = records_.get( prefix );
   return record != nullptr && record->isOn( fecKey );
}

std::vector< Hul::VrfAndIpGenPrefix > PrefixRecords::prefixesOn( FecKey fecKey ) const {
   std::vector< Hul::VrfAndIpGenPrefix > out;
   for ( const auto & [ prefix, record ] : records_ )
      if ( record.isOn( fecKey ) ) out.push_back( prefix );
   std::sort( out.begin(), out.end() );
   return out;
}

void PrefixRecords::forgetEmpty( const Hul::VrfAndIpGenPrefix & prefix, const Record & record ) {
   if ( !record.routeInfo && !record.fecKeys[ 0 ] && !record.fecKeys[ 1 ] ) records_.erase( prefix );
}

FecInfo::FecInfo( const Gant::String & ) { GANT_FAIL( "No String constructor for FecInfo - has collection" ); }

void FecInfo::nextHopIs( U32 slot, const NextHopKey & nextHop ) {
   if ( slot >= nextHop_.size() ) nextHop_.resize( slot + 1 );
   nextHop_[ slot ] = nextHop;
}

void FecInfo::nextHopBitmapIs( U32 slot, HulTypes::ViaBitmap bitmap ) {
   if ( slot >= nextHopBitmap_.size() ) nextHopBitmap_.resize( slot + 1 );
   nextHopBitmap_[ slot ] = std::move( bitmap );
}

bool operator==( const FecInfo & a, const FecInfo & b ) {
   if ( a.numberOfUniqueNextHops() != b.numberOfUniqueNextHops() || a.numberOfNextHops() != b.numberOfNextHops() )
      return false;
   for ( U32 i = 0; i < a.numberOfUniqueNextHops(); ++i )
      if ( a.nextHop( i ) != b.nextHop( i ) || a.nextHopBitmap( i ) != b.nextHopBitmap( i ) ) return false;
   return true;
}

bool operator<( const FecInfo & a, const FecInfo & b ) {
   const auto counts = []( const FecInfo & info ) {
      return std::pair( info.numberOfUniqueNextHops(), info.numberOfNextHops() );
   };
   if ( counts( a ) != counts( b ) ) return counts( a ) < counts( b );
   for ( U32 i = 0; i < a.numberOfUniqueNextHops(); ++i ) {
      if ( a.nextHop( i ) != b.nextHop( i ) ) return a.nextHop( i ) < b.nextHop( i );
      if ( a.nextHopBitmap( i ) != b.nextHopBitmap( i ) ) return a.nextHopBitmap( i ) < b.nextHopBitmap( i );
   }
   return false;
}

size_t FecInfo::hash() const {
   Kyt::HashMix hash( 0 );
   hash.mix( numberOfUniqueNextHops() ).mix( numberOfNextHops() );
   for ( U32 i = 0; i < numberOfUniqueNextHops(); ++i ) hash.mix( nextHop( i ) ).mix( nextHopBitmap( i ) );
   return hash.value();
}

Gant::String FecInfo::str() const { return Gant::textsOf( numberOfUniqueNextHops(), " ", numberOfNextHops() ); }

Gant::String FecInfo::strdet() const {
   Gant::String out;
   for ( U32 i = 0; i < numberOfUniqueNextHops(); ++i ) out += Gant::textsOf( " ", i, " ", nextHop( i ) );
   return out;
}

namespace {

template < typename SlotText >
Gant::String slots( U32 used, SlotText slotText ) {
   Gant::String out = "[";
   for ( U32 i = 0; i < used; ++i ) out += ( i == 0 ? "" : ", " ) + slotText( i );
   return out += "]";
}

} // namespace

Gant::String FecInfo::strep() const {
   const auto used = numberOfUniqueNextHops();
   const auto nextHops = slots( used, [ this ]( U32 i ) { return nextHop( i ).strep(); } );
   const auto bitmaps = slots( used, [ this ]( U32 i ) { return nextHopBitmap( i ).strep(); } );
   return "Value('VexL3Unicast::FecInfo', ** {'nextHop': " + nextHops + ", 'nextHopBitmap': " + bitmaps +
          ", 'numberOfNextHops': " + std::to_string( numberOfNextHops() ) +
          ", 'numberOfUniqueNextHops': " + std::to_string( used ) + "})";
}

void Fec::lpmRouteIs( const Hul::VrfAndIpGenPrefix & prefix, bool present ) {
   if ( present )
      lpmRoutes_ += records_->fecIs( prefix, key() );
   else
      lpmRoutes_ -= records_->fecDel( prefix, key() );
}

Gant::String Fec::str() const {
   return Gant::textsOf( key(), ",", version(), ",", lpmRoutes(), ",", info().numberOfNextHops() );
}

Gant::Ptr< Fec > fecFactory( FecKey key ) { return Gant::make< Fec >( key ); }

Gant::String FecSet::str() const {
   Gant::String out;
   for ( const auto & fec : fecIterator() ) out += Gant::textsOf( fec->key(), "," );
   return out;
}

Gant::String RouteInfo::str() const { return Gant::textsOf( fecKey(), ",,", tableType() ); }

static Gant::Pool< sizeof( RouteInfo ) > routeInfos;

void * RouteInfo::operator new( size_t size ) {
   GANT_ASSERT( size == sizeof( RouteInfo ), " size ", size );
   return routeInfos.take();
}

void RouteInfo::operator delete( void * memory ) { routeInfos.give( memory ); }

Gant::Ptr< RouteInfo > routeInfoFactory() { return Gant::make< RouteInfo >(); }

const Gant::Ptr< Fec > & RouteDb::fecIs( FecKey key ) {
   auto & fec = fec_[ key ];
   if ( !fec ) fec = Gant::make< Fec >( key, records_ );
   return fec;
}

namespace {

template < typename Sets >
void fecSetFecIs( Sets & sets, const typename Sets::key_type & key, const Gant::Ptr< Fec > & fec, bool member ) {
   const auto at = sets.try_emplace( key ).first;
   if ( !at->second ) at->second = Gant::make< FecSet >();
   at->second->fecIs( fec, member );
   if ( at->second->fecs() == 0 ) sets.erase( at );
}

} // namespace

void RouteDb::intfToFecSetFecIs( Kynet::IntfId intf, const Gant::Ptr< Fec > & fec, bool member ) {
   fecSetFecIs( intfToFecSet_, intf, fec, member );
}

void RouteDb::intfAndVlanToFecSetFecIs( const IntfAndVlan & intfAndVlan, const Gant::Ptr< Fec > & fec, bool member ) {
   fecSetFecIs( intfAndVlanToFecSet_, intfAndVlan, fec, member );
}

void RouteDb::vlanToFloodingFecSetFecIs( Bridging::VlanId vlanId, const Gant::Ptr< Fec > & fec, bool member ) {
   fecSetFecIs( vlanToFloodingFecSet_, vlanId, fec, member );
}

FecKey RouteDb::allocateFecKey() {
   if ( unusedFecKeys() != 0 ) {
      const auto key = *unusedFecKeyIterator().begin();
      unusedFecKeyDel( key );
      return key;
   }
   const auto key = nextFecKey();
   nextFecKeyInc();
   return FecKey( static_cast< U32 >( key ) );
}

Gant::Ptr< RouteDb > routeDbFactory( const Gant::Name & name ) { return Gant::make< RouteDb >( name ); }

} // namespace VexL3Unicast
