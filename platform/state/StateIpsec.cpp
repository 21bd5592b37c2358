#include "StateIpsec.h"

#include "GantAssert.h"
#include "GantCleanse.h"

#include <algorithm>

namespace Ipsec::Ike {

KeyMaterial::KeyMaterial( std::string_view bytes ) {
   if ( !bytes.empty() ) bytes_ = Gant::make< Bytes >( bytes );
}

KeyMaterial::Bytes::~Bytes() { Gant::cleanse( value ); }

void KeyMaterial::strepIs( Gant::StrepReader & in ) { in.fail( "key material, which has no text form", in.bare() ); }

void SecurityAssociationQueue::saqDeq() {
   GANT_ASSERT( saqs() != 0 );
   saqs_.pop_front();
   ++head_;
}

void SecurityAssociationQueue::agesFrom( const SecurityAssociationQueue & former ) {
   for ( auto & sa : saqs_ )
      if ( const auto same = std::ranges::find( former, sa ); same != former.end() ) sa.agreedAtIs( same->agreedAt() );
}

void Connection::agesFrom( const Connection & former ) {
   inSaq_.agesFrom( former.inSaq() );
   if ( outSa_ && outSa_ == former.outSa() ) outSa_->agreedAtIs( former.outSa()->agreedAt() );
}

} // namespace Ipsec::Ike
