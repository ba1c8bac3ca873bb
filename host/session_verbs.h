// The verbs of a session alone: undo, node files, check-out, and its end. As all verbs they give an
// exit code, throw failures, and find their session in the context.
#ifndef HOST_SESSION_VERBS_H_
#define HOST_SESSION_VERBS_H_

#include <optional>
#include <string>

#include "host/verbs.h"

namespace samplehost {

int Undo(const Context& context);
int History(const Context& context);
int Save(const Context& context);

int Copy(const Context& context, const std::string& node, const std::string& name);
int Rename(const Context& context, const std::string& node, const std::string& name);
int Select(const Context& context, const std::string& node, const std::string& qualityClass);

// A file that is in the folder and is not what would be written there is kept without `force`: it
// may be the edits of an earlier check-out.
int CheckOut(const Context& context, const std::string& node, const std::string& folder,
             bool force);
int CheckIn(const Context& context, const std::string& node,
            const std::optional<std::string>& folder);
int UndoCheckOut(const Context& context, const std::string& node);
int RedoCheckOut(const Context& context, const std::string& node);
// Refused without `force` where the node has changed since: the changes would go with it.
int UndoCheckIn(const Context& context, const std::string& node, bool force);
// What is checked out, file by file, and whether there is anything to save.
int Status(const Context& context);

struct FileArguments {
  std::string node;
  std::string file;
  std::string from;  // native path of the database that saved the file; empty: the open one
  bool force = false;
};
int SaveNode(const Context& context, const FileArguments& arguments);
int LoadNode(const Context& context, const FileArguments& arguments);
int SaveSetup(const Context& context, const FileArguments& arguments);
int LoadSetup(const Context& context, const FileArguments& arguments);

}  // namespace samplehost

#endif  // HOST_SESSION_VERBS_H_
