// What the data plane says that it lost, asked for now and then.
#pragma once

#include <memory>
#include <optional>

namespace vex::pb {
class DropsReply;
}
namespace Vex {
class EngineCall;
class EngineQuery;
} // namespace Vex

namespace Host {

class DaemonControl;

class DropsWatch {
 public:
   static constexpr double askEvery = 5; // seconds

   explicit DropsWatch( DaemonControl & daemon );
   ~DropsWatch();
   DropsWatch( const DropsWatch & ) = delete;
   DropsWatch & operator=( const DropsWatch & ) = delete;

   // Asks when it is time, and forgets what another session said.
   void look();
   // The newest answer of this session; null: there is none, or the data plane does not know the question.
   std::shared_ptr< const vex::pb::DropsReply > newest() const { return newest_; }

 private:
   void forget();

   DaemonControl & daemon_;
   std::optional< unsigned > session_;
   double askAt_ = 0;
   bool asked_ = false; // and not answered
   std::shared_ptr< const vex::pb::DropsReply > newest_;
   std::unique_ptr< Vex::EngineQuery > query_;
   std::unique_ptr< Vex::EngineCall > call_; // gone first: it calls back
};

} // namespace Host
