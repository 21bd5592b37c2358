#include "HulHelper.h"

namespace HulHelper {

Kynet::IntfId AdjSmHelper::getFirstL2IntfForAdj( const AdjPtr & adj ) const {
   return adj->via().size() == 0 ? Kynet::IntfId() : adj->via().begin()->first.l2Intf();
}

Gant::Ptr< const Acl::Config > RoutingStatusSmHelper::getAclConfig() { return {}; }

} // namespace HulHelper
