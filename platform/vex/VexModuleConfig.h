// A group of modules and its connection to the data plane: where commands go in, and where answers and errors come out.
#pragma once

#include "GantAttr.h"
#include "VexChannel.h"

#include <deque>
#include <memory>

namespace Vex {

// One command on its way into a queue. It owns its message, unless the message lives in an arena. The names are not
// copied: a command is queued in the function that makes it.
class ModuleCmdBase {
 public:
   using Message = google::protobuf::Message;
   ModuleCmdBase( std::string_view moduleName, std::string_view cmdAction, Message * message, bool changesForwarding );
   ModuleCmdBase( const ModuleCmdBase & ) = delete;
   ModuleCmdBase & operator=( const ModuleCmdBase & ) = delete;
   ~ModuleCmdBase();

   std::string_view moduleName() const { return moduleName_; }
   std::string_view cmdAction() const { return cmdAction_; }
   const Message & message() const { return *message_; }
   bool changesForwarding() const { return changesForwarding_; }

 private:
   std::string_view moduleName_;
   std::string_view cmdAction_;
   Message * message_;
   bool owned_;
   bool changesForwarding_;
};

// Takes the message, which is not null. `changesForwarding` is true on every command but the shows and "setCounterIds".
inline ModuleCmdBase moduleCmdFactory( std::string_view moduleName, std::string_view cmdAction,
                                       google::protobuf::Message * message, bool changesForwarding ) {
   return ModuleCmdBase( moduleName, cmdAction, message, changesForwarding );
}

class ModuleResponseEvent : public Gant::PtrInterface {
 public:
   // Null: the answer holds no message.
   explicit ModuleResponseEvent( std::unique_ptr< google::protobuf::Any > response );
   ~ModuleResponseEvent() override;
   const google::protobuf::Any * response() const { return response_.get(); }

 private:
   std::unique_ptr< google::protobuf::Any > response_;
};

class ModuleErrorEvent : public Gant::PtrInterface {
 public:
   explicit ModuleErrorEvent( Refusal refusal ) : refusal_( std::move( refusal ) ) {}
   GrpcRequestType cmdType() const { return refusal_.type; }
   const Gant::String & cmdAction() const { return refusal_.action; }
   S32 errorCode() const { return refusal_.code; }
   const Gant::String & errorMsg() const { return refusal_.text; }
   const Refusal & refusal() const { return refusal_; }

 private:
   Refusal refusal_;
};

class ModuleStatus : public Gant::PtrInterface {
 public:
   class Notifiee : public Gant::NotifieeOf< ModuleStatus > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onResponseQueue() {}
      virtual void onErrorQueue() {}
   };
   GANT_NOTIFIER( Notifiee )

   // Each arrival notifies.
   void responseQueueEnq( Gant::Ptr< ModuleResponseEvent > event );
   void errorQueueEnq( Gant::Ptr< ModuleErrorEvent > event );
   // The oldest, or null.
   Gant::Ptr< ModuleResponseEvent > responseQueueDeq();
   Gant::Ptr< ModuleErrorEvent > errorQueueDeq();

 private:
   std::deque< Gant::Ptr< ModuleResponseEvent > > responseQueue_;
   std::deque< Gant::Ptr< ModuleErrorEvent > > errorQueue_;
};

class Module;

class ModuleConfig : public Gant::PtrInterface {
 public:
   using Modules = Gant::OrderedMap< Gant::String, Module * >;

   ModuleConfig( Gant::Ptr< Channel > channel, Channel::OriginId origin ) :
        channel_( std::move( channel ) ), origin_( origin ) {}

   // Appends the command to the channel's batch. It leaves at the end of the loop's turn, or when the batch is full.
   void cmdBatchEnq( const ModuleCmdBase & cmd ) {
      channel_->command( origin_, cmd.moduleName(), cmd.cmdAction(), cmd.message(), cmd.changesForwarding() );
   }
   google::protobuf::Arena & arena() const { return channel_->arena(); }

   const Gant::Ptr< Channel > & channel() const { return channel_; }
   Channel::OriginId origin() const { return origin_; }

   // The group's modules by name. A module enters and leaves by itself, at its construction and its destruction.
   const Modules & modules() const { return modules_; }
   void moduleIs( const Gant::String & name, Module * module ) { modules_[ name ] = module; }
   // Nothing when another module has taken the name.
   void moduleDel( const Gant::String & name, const Module * module );

   // True: refusals of the group go to its error queue, because somebody reads it.
   GANT_ATTR( bool, errorHandlingEnabled, false )

 private:
   Gant::Ptr< Channel > channel_;
   Channel::OriginId origin_;
   Modules modules_;
};

// The connection of a named group of modules to the data plane.
class ModuleConfigStatusPair : public Gant::PtrInterface, private Channel::Origin {
 public:
   class Notifiee : public Gant::NotifieeOf< ModuleConfigStatusPair > {
    public:
      using NotifieeOf::NotifieeOf;
      virtual void onModuleStatus() {}
   };
   GANT_NOTIFIER( Notifiee )

   ModuleConfigStatusPair( Gant::Name name, Gant::Ptr< Channel > channel );
   ~ModuleConfigStatusPair() override;

   GANT_CONST( Gant::Name, name )
   GANT_CONST( Gant::Ptr< ModuleConfig >, moduleConfig )
   GANT_WATCHED( Gant::Ptr< ModuleStatus >, moduleStatus, onModuleStatus )

 private:
   void response( const google::protobuf::Any & data ) override;
   void refused( const Refusal & refusal ) override;
   bool wantsRefusals() const override { return moduleConfig_->errorHandlingEnabled(); }
};

// The groups of one channel.
class ModuleGlobalCmdConfig : public Gant::PtrInterface {
 public:
   using Pairs = Gant::OrderedMap< Gant::Name, Gant::Ptr< ModuleConfigStatusPair > >;
   explicit ModuleGlobalCmdConfig( Gant::Ptr< Channel > channel ) : channel_( std::move( channel ) ) {}
   GANT_CONST( Gant::Ptr< Channel >, channel )

   // Makes the pair of that name, or returns the present one.
   Gant::Ptr< ModuleConfigStatusPair > moduleConfigStatusPairIs( const Gant::Name & name );
   const Pairs & moduleConfigStatusPairIterator() const { return pairs_; }

 private:
   Pairs pairs_;
};

} // namespace Vex
