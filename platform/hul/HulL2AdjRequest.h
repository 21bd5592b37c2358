// How others speak to the layer about adjacencies.
#pragma once

#include "GantEntity.h"

namespace Hul {

// Asks for a look at every adjacency: those that the helper refused, or took in part, are offered again.
class AdjReviewEvent : public Gant::PtrInterface {
 public:
   class Notifiee : public Gant::NotifieeOf< AdjReviewEvent > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onReview() {}
   };
   GANT_NOTIFIER( Notifiee )
   // Counted up by each request.
   GANT_WATCHED( U64, review, onReview )
};

// Adjacencies that tunnels ask for, and the answers.
class L2AdjRequest : public Gant::Entity {
 public:
   using Entity::Entity;
};

class L2AdjResponse : public Gant::Entity {
 public:
   using Entity::Entity;
};

} // namespace Hul
