// Prompt: lines from a terminal, with editing, history and completion.
#ifndef HOST_PROMPT_H_
#define HOST_PROMPT_H_

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

namespace samplehost {

class Prompt {
 public:
  // Gives what can stand in the place of the last word of the text in front of the cursor.
  using Complete = std::function<std::vector<std::string>(const std::string&)>;

  // Takes the terminal of standard input. The history comes from, and goes to, a file of the user's
  // state folder; where there is none it lasts as long as the prompt.
  explicit Prompt(Complete complete);
  ~Prompt();
  Prompt(const Prompt&) = delete;
  Prompt& operator=(const Prompt&) = delete;

  // A line without its end; nothing at the end of input. Ctrl-C drops the line that is typed.
  std::optional<std::string> Read();

  // The file of the history, native; empty where neither XDG_STATE_HOME nor HOME is set.
  static std::string HistoryFile();

 private:
  struct Terminal;
  std::unique_ptr<Terminal> terminal_;
};

}  // namespace samplehost

#endif  // HOST_PROMPT_H_
