// What an answer looks like on the screen. What was asked for goes to the output stream, messages to the error stream.
#pragma once

#include "CtlTable.h"

#include <memory>

namespace Ctl {

class View : public Answer {
 public:
   explicit View( std::ostream & out ) : out_( out ) {}
   // The message goes to the error stream.
   void failed( const Error & error ) override;
   // Of the program, once the answer is over.
   int exitCode() const { return exitCode_; }

 protected:
   std::ostream & out() { return out_; }
   void exitCodeIs( int exitCode ) { exitCode_ = exitCode; }

 private:
   std::ostream & out_;
   int exitCode_ = ExitCode::done;
};

// One document, also for an answer with no rows and for an error:
//    {"command": "show fib", "rows": [...], the members of the end, "error": {"code": ..., "message": ...}}
// An answer that is one object stands under "result", and there are no rows.
class JsonView : public View {
 public:
   JsonView( std::string command, bool record, std::ostream & out );
   void row( const Json & row ) override;
   void end( const Json & end ) override;
   void failed( const Error & error ) override;

 private:
   void open();
   void close( const Json & members );

   const std::string command_;
   const bool record_;
   size_t rows_ = 0;
   bool open_ = false;
};

// A line below a table, from the members of the end; empty: none.
using Footer = std::function< std::string( const Json & end ) >;

class TableView : public View {
 public:
   TableView( Columns columns, Footer footer, std::ostream & out, size_t width = 0 );
   void row( const Json & row ) override { table_.row( row ); }
   void end( const Json & end ) override;
   void failed( const Error & error ) override;

 private:
   Table table_;
   const Footer footer_;
};

// Facts of one object, one to a line.
class RecordView : public View {
 public:
   RecordView( Columns facts, std::ostream & out );
   void row( const Json & row ) override;
   void end( const Json & ) override {}

 private:
   const Columns facts_;
};

// Nothing but messages.
class QuietView : public View {
 public:
   using View::View;
   void row( const Json & ) override {}
   void end( const Json & end ) override;
};

} // namespace Ctl
