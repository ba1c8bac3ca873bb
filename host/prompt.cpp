#include "host/prompt.h"

#include <histedit.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <system_error>
#include <utility>

#include "host/failure.h"
#include "host/shell.h"

namespace samplehost {

namespace {

constexpr int kHistorySize = 1000;

char* PromptText(EditLine*) {
  static char text[] = "samplehost> ";
  return text;
}

// Where the last word of the text begins, an opening quote included.
std::size_t LastWord(const std::string& text) {
  std::size_t start = 0;
  char quote = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    if (quote != 0) {
      if (text[i] == quote) quote = 0;
    } else if (text[i] == '"' || text[i] == '\'') {
      quote = text[i];
    } else if (text[i] == ' ' || text[i] == '\t') {
      start = i + 1;
    }
  }
  return start;
}

std::string CommonStart(const std::vector<std::string>& words) {
  std::string common = words.front();
  for (const std::string& word : words) {
    const auto end = std::mismatch(common.begin(), common.end(), word.begin(), word.end()).first;
    common.erase(end, common.end());
  }
  return common;
}

}  // namespace

struct Prompt::Terminal {
  explicit Terminal(Complete complete);
  ~Terminal();
  Terminal(const Terminal&) = delete;
  Terminal& operator=(const Terminal&) = delete;

  static unsigned char OnTab(EditLine* line, int);
  static unsigned char OnInterrupt(EditLine* line, int);
  unsigned char CompleteLine();
  void Remember(const std::string& line);

  Complete complete;
  EditLine* line;
  History* history;
  HistEvent event{};
  std::string file;
  bool dropped = false;  // the line was, by Ctrl-C
};

Prompt::Terminal::Terminal(Complete completion)
    : complete(std::move(completion)),
      line(el_init("samplehost", stdin, stdout, stderr)),
      history(history_init()),
      file(HistoryFile()) {
  if (line == nullptr || history == nullptr) {
    if (line != nullptr) el_end(line);
    if (history != nullptr) history_end(history);
    throw Failure("The terminal cannot be used.", "Give the lines with --script.");
  }
  ::history(history, &event, H_SETSIZE, kHistorySize);
  ::history(history, &event, H_SETUNIQUE, 1);
  if (!file.empty()) ::history(history, &event, H_LOAD, file.c_str());
  el_set(line, EL_CLIENTDATA, this);
  el_set(line, EL_PROMPT, &PromptText);
  el_set(line, EL_EDITOR, "emacs");
  el_set(line, EL_HIST, &::history, history);
  el_set(line, EL_ADDFN, "complete", "completes the word", &OnTab);
  el_set(line, EL_BIND, "^I", "complete", nullptr);
  // Ctrl-C is a key of the editor: a signal could come just ahead of the reading and be missed.
  el_set(line, EL_SETTY, "-d", "-isig", nullptr);
  el_set(line, EL_ADDFN, "drop-line", "drops the line", &OnInterrupt);
  el_set(line, EL_BIND, "^C", "drop-line", nullptr);
}

Prompt::Terminal::~Terminal() {
  el_end(line);
  history_end(history);
}

unsigned char Prompt::Terminal::OnTab(EditLine* line, int) {
  void* data = nullptr;
  el_get(line, EL_CLIENTDATA, &data);
  try {
    return static_cast<Terminal*>(data)->CompleteLine();
  } catch (const std::exception&) {
    return CC_ERROR;
  }
}

unsigned char Prompt::Terminal::OnInterrupt(EditLine* line, int) {
  void* data = nullptr;
  el_get(line, EL_CLIENTDATA, &data);
  static_cast<Terminal*>(data)->dropped = true;
  return CC_NEWLINE;
}

unsigned char Prompt::Terminal::CompleteLine() {
  const LineInfo* const info = el_line(line);
  const std::string typed(info->buffer, static_cast<std::size_t>(info->cursor - info->buffer));
  const std::vector<std::string> words = complete(typed);
  if (words.empty()) return CC_ERROR;
  const std::string word = typed.substr(LastWord(typed));
  std::string common = CommonStart(words);
  const bool done = words.size() == 1;
  if (done) common = QuoteWord(common) + " ";
  const std::size_t known = word.find_first_of("\"'") == 0 ? 1 : 0;
  if (done || common.size() > word.size() - known) {
    // Typed text is replaced, so that its case and quotes are those of the name.
    el_deletestr(line, static_cast<int>(word.size()));
    const std::string quote = done ? "" : word.substr(0, known);
    const bool needsQuote = quote.empty() && !done && QuoteWord(common) != common;
    el_insertstr(line, ((needsQuote ? "\"" : quote) + common).c_str());
    return CC_REFRESH;
  }
  std::fputc('\n', stdout);
  for (const std::string& candidate : words)
    std::fprintf(stdout, "%s  ", candidate.c_str());
  std::fputc('\n', stdout);
  return CC_REDISPLAY;
}

void Prompt::Terminal::Remember(const std::string& typed) {
  ::history(history, &event, H_ENTER, typed.c_str());
  if (file.empty()) return;
  std::error_code ignored;
  std::filesystem::create_directories(std::filesystem::path(file).parent_path(), ignored);
  ::history(history, &event, H_SAVE, file.c_str());
}

Prompt::Prompt(Complete complete) : terminal_(std::make_unique<Terminal>(std::move(complete))) {}

Prompt::~Prompt() = default;

std::optional<std::string> Prompt::Read() {
  for (;;) {
    int count = 0;
    terminal_->dropped = false;
    const char* const text = el_gets(terminal_->line, &count);
    if (terminal_->dropped) {
      std::fputc('\n', stdout);
      el_reset(terminal_->line);
      continue;
    }
    if (text == nullptr || count <= 0) return {};
    std::string typed(text);
    while (!typed.empty() && (typed.back() == '\n' || typed.back() == '\r'))
      typed.pop_back();
    if (typed.find_first_not_of(" \t") != std::string::npos) terminal_->Remember(typed);
    return typed;
  }
}

std::string Prompt::HistoryFile() {
  const char* const state = std::getenv("XDG_STATE_HOME");
  if (state != nullptr && state[0] == '/') return std::string(state) + "/samplehost/history";
  const char* const home = std::getenv("HOME");
  if (home == nullptr || home[0] != '/') return {};
  return std::string(home) + "/.local/state/samplehost/history";
}

}  // namespace samplehost
