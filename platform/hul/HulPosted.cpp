#include "HulPosted.h"

#include "GantActivity.h"

namespace Hul {

Posted::~Posted() {
   if ( turn_->posted || turn_->running )
      turn_->orphan = true;
   else
      delete turn_;
}

void Posted::post() {
   if ( turn_->posted ) return;
   turn_->posted = true;
   // A lone pointer fits into the loop's queue without an allocation of its own.
   Gant::activityManager()->post( [ turn = turn_ ] { run( turn ); } );
}

void Posted::run( Turn * turn ) {
   turn->posted = false;
   if ( !turn->orphan ) {
      turn->running = true;
      turn->work();
      turn->running = false;
   }
   if ( turn->orphan && !turn->posted ) delete turn;
}

} // namespace Hul
