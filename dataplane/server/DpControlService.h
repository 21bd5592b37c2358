// The service bess.pb.BESSControl on an engine.
//
// PauseAll and ResumeAll always succeed: packets are walked under the engine's lock, so that there is no worker to
// stop.
#pragma once

#include "DpEngine.h"

#include "bess/control.grpc.pb.h"

namespace Vexdp {

class ControlService final : public bess::pb::BESSControl::Service {
 public:
   explicit ControlService( Engine & engine ) : engine_( engine ) {}

   using Context = grpc::ServerContext;
   using EmptyRequest = bess::pb::EmptyRequest;
   using EmptyResponse = bess::pb::EmptyResponse;

   grpc::Status GetVersion( Context *, const EmptyRequest *, bess::pb::VersionResponse * response ) override;
   grpc::Status ResetAll( Context *, const EmptyRequest *, EmptyResponse * ) override;
   grpc::Status PauseAll( Context *, const EmptyRequest *, EmptyResponse * ) override;
   grpc::Status ResumeAll( Context *, const EmptyRequest *, EmptyResponse * ) override;
   grpc::Status ListMclass( Context *, const EmptyRequest *, bess::pb::ListMclassResponse * response ) override;
   grpc::Status GetMclassInfo( Context *, const bess::pb::GetMclassInfoRequest * request,
                               bess::pb::GetMclassInfoResponse * response ) override;
   grpc::Status ResetModules( Context *, const EmptyRequest *, EmptyResponse * ) override;
   grpc::Status ListModules( Context *, const EmptyRequest *, bess::pb::ListModulesResponse * response ) override;
   grpc::Status CreateModule( Context *, const bess::pb::CreateModuleRequest * request,
                              bess::pb::CreateModuleResponse * response ) override;
   grpc::Status DestroyModule( Context *, const bess::pb::DestroyModuleRequest * request,
                               EmptyResponse * response ) override;
   grpc::Status GetModuleInfo( Context *, const bess::pb::GetModuleInfoRequest * request,
                               bess::pb::GetModuleInfoResponse * response ) override;
   grpc::Status ConnectModules( Context *, const bess::pb::ConnectModulesRequest * request,
                                EmptyResponse * response ) override;
   grpc::Status DisconnectModules( Context *, const bess::pb::DisconnectModulesRequest * request,
                                   EmptyResponse * response ) override;
   grpc::Status ModuleCommand( Context *, const bess::pb::CommandRequest * request,
                               bess::pb::CommandResponse * response ) override;

 private:
   Engine & engine_;
};

} // namespace Vexdp
