#include "host/import_jobs.h"

#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdint>
#include <list>
#include <nlohmann/json.hpp>
#include <optional>
#include <utility>

#include "host/failure.h"
#include "host/paths.h"

namespace samplehost {

namespace {

using Json = nlohmann::json;
using Bytes = std::vector<std::uint8_t>;

// --- Messages: the number of a file one way, an answer in CBOR behind its size the other ---

// False at the end of the connection.
bool SendAll(int socket, const void* data, std::size_t size) {
  const auto* at = static_cast<const char*>(data);
  while (size > 0) {
    const ssize_t sent = ::send(socket, at, size, MSG_NOSIGNAL);
    if (sent < 0 && errno == EINTR) continue;
    if (sent <= 0) return false;
    at += sent;
    size -= static_cast<std::size_t>(sent);
  }
  return true;
}

bool ReceiveAll(int socket, void* data, std::size_t size) {
  auto* at = static_cast<char*>(data);
  while (size > 0) {
    const ssize_t received = ::recv(socket, at, size, 0);
    if (received < 0 && errno == EINTR) continue;
    if (received <= 0) return false;
    at += received;
    size -= static_cast<std::size_t>(received);
  }
  return true;
}

// --- The worker's side ---

Json Answer(Session& session, const std::string& file, const ImportOptions& options) {
  try {
    Node& node = ImportFile(session, FullPath(file), options);
    return {{"payload", Json::binary(Session::PayloadOf(node))},
            {"step", Narrow(session.root().undo().last().record.description)}};
  } catch (const Failure& failure) {
    return {{"reason", failure.what()}, {"advice", failure.advice()}};
  } catch (const std::exception& error) {
    return {{"reason", error.what()}, {"advice", ""}};
  }
}

// Ends the process without a word to the library or the database: the parent has them open.
[[noreturn]] void Work(Session& session, const std::vector<std::string>& files,
                       const ImportOptions& options, int socket) {
  std::signal(SIGINT, SIG_IGN);  // the user stops the parent, which waits for what is under way
  std::uint64_t file = 0;
  while (ReceiveAll(socket, &file, sizeof file)) {
    const Bytes answer = Json::to_cbor(Answer(session, files[file], options));
    const std::uint64_t size = answer.size();
    if (!SendAll(socket, &size, sizeof size) || !SendAll(socket, answer.data(), answer.size())) {
      break;
    }
  }
  ::_exit(0);
}

// --- The parent's side ---

struct Worker {
  pid_t process;
  int socket;
  std::optional<std::size_t> file;  // that it is busy with
};

class Workers {
 public:
  Workers(Session& session, const std::vector<std::string>& files, const ImportOptions& options)
      : session_(session), files_(files), options_(options) {}
  // Waits for what is under way.
  ~Workers() {
    while (!workers_.empty())
      End(workers_.begin());
  }
  Workers(const Workers&) = delete;
  Workers& operator=(const Workers&) = delete;

  // A worker with nothing to do, a new one where there may be one more; null for none.
  Worker* Idle() {
    for (Worker& worker : workers_) {
      if (!worker.file) return &worker;
    }
    return workers_.size() < options_.jobs ? Start() : nullptr;
  }

  bool AnyBusy() const {
    for (const Worker& worker : workers_) {
      if (worker.file) return true;
    }
    return false;
  }

  // Waits for an answer, and gives it with the number of its file. Some worker is busy.
  std::pair<std::size_t, Json> Wait() {
    for (;;) {
      std::vector<pollfd> sockets;
      for (const Worker& worker : workers_)
        sockets.push_back({worker.file ? worker.socket : -1, POLLIN, 0});
      if (::poll(sockets.data(), sockets.size(), -1) < 0) continue;  // a signal
      auto socket = sockets.begin();
      for (auto worker = workers_.begin(); worker != workers_.end(); ++worker, ++socket) {
        if (socket->revents == 0) continue;
        const std::size_t file = *worker->file;  // the worker can be gone behind its answer
        return {file, Receive(worker)};
      }
    }
  }

 private:
  using Place = std::list<Worker>::iterator;

  // Null where the system has no room for another process.
  Worker* Start() {
    int ends[2];
    if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0) return nullptr;
    workers_.push_back({-1, ends[0], {}});
    Worker& worker = workers_.back();
    worker.process = ::fork();
    if (worker.process == 0) {
      // A worker that held the parent's ends would keep the others waiting when the parent dies.
      for (const Worker& other : workers_)
        ::close(other.socket);
      Work(session_, files_, options_, ends[1]);
    }
    ::close(ends[1]);
    if (worker.process > 0) return &worker;
    ::close(ends[0]);
    workers_.pop_back();
    return nullptr;
  }

  Json Receive(Place worker) {
    std::uint64_t size = 0;
    if (ReceiveAll(worker->socket, &size, sizeof size)) {
      Bytes bytes(size);
      if (ReceiveAll(worker->socket, bytes.data(), bytes.size())) {
        worker->file.reset();
        return Json::from_cbor(bytes);
      }
    }
    const int status = End(worker);
    const std::string how = WIFSIGNALED(status) ? fmt::format("signal {}", WTERMSIG(status))
                                                : fmt::format("code {}", WEXITSTATUS(status));
    return {{"reason", fmt::format("The process that imported it ended ({})", how)},
            {"advice", "Import it again; \"samplehost clean\" finds what it left behind."}};
  }

  int End(Place worker) {
    ::close(worker->socket);
    int status = 0;
    while (::waitpid(worker->process, &status, 0) < 0 && errno == EINTR) {
    }
    workers_.erase(worker);
    return status;
  }

  Session& session_;
  const std::vector<std::string>& files_;
  const ImportOptions& options_;
  std::list<Worker> workers_;
};

// Takes over what a worker has made of a file.
void TakeOver(Session& session, const std::string& file, const Json& answer, ImportResult& result) {
  try {
    if (!answer.contains("payload")) throw Failure(answer.at("reason"), answer.at("advice"));
    const std::string name = session.root().FreeName(StemOf(FullPath(file)));
    session.AddImported(name, answer.at("payload").get_binary(), answer.at("step"));
    result.imported.push_back({file, name});
  } catch (const Failure& failure) {
    result.failures.push_back({file, failure.what(), failure.advice()});
  }
}

}  // namespace

ImportResult ImportInParallel(Session& session, const std::vector<std::string>& files,
                              const ImportOptions& options, const ImportStep& step) {
  ImportResult result;
  Workers workers(session, files, options);
  std::vector<std::optional<Json>> answers(files.size());
  std::size_t given = 0;
  std::size_t taken = 0;
  bool stopped = false;
  while (taken < given || (given < files.size() && !stopped)) {
    while (given < files.size() && !stopped) {
      Worker* const idle = workers.Idle();
      if (idle == nullptr) break;
      stopped = !step(given, files.size(), files[given]);
      if (stopped) break;
      const std::uint64_t number = given++;
      idle->file = number;
      SendAll(idle->socket, &number, sizeof number);  // the answer tells of a worker that is gone
    }
    if (!workers.AnyBusy()) {
      if (stopped) break;
      throw Failure("No process could be started for the import.", "Leave --jobs away.");
    }
    auto [number, answer] = workers.Wait();
    answers[number] = std::move(answer);
    for (; taken < given && answers[taken]; ++taken) {
      TakeOver(session, files[taken], *answers[taken], result);
      answers[taken].reset();
    }
  }
  result.left = files.size() - given;
  return result;
}

}  // namespace samplehost
