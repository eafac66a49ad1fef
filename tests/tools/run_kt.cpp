#include "tools/run_kt.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <cstring>

#include "support/kt_test.h"

extern char** environ;

namespace kt::test {

std::string ToolPath() {
  if (const char* chosen = std::getenv("KT_TOOL"); chosen != nullptr && chosen[0] != '\0') {
    return chosen;
  }
  // CTest installs the build into a scratch prefix first (KtToolInstall);
  // run by hand before that, the test takes the built kt.
  return access(KT_INSTALLED_TOOL_PATH, X_OK) == 0 ? KT_INSTALLED_TOOL_PATH : KT_TOOL_PATH;
}

KtRun RunKt(const std::vector<std::string>& args, const std::string& cwd,
            const std::map<std::string, std::string>& env, const KtStreams& streams) {
  ScratchDir outputs;
  const std::string out_path =
      streams.stdout_path.empty() ? outputs.File("out") : streams.stdout_path;
  std::string in_path = "/dev/null";
  if (!streams.stdin_text.empty()) {
    in_path = outputs.File("in");
    WriteFile(in_path, streams.stdin_text);
  }
  const std::string err_path = outputs.File("err");
  std::vector<std::string> arguments = {KT_TOOL_EMULATOR ToolPath()};
  arguments.insert(arguments.end(), args.begin(), args.end());
  std::vector<std::string> environment;
  for (char** entry = environ; *entry != nullptr; ++entry) {
    const std::string text = *entry;
    if (env.count(text.substr(0, text.find('='))) == 0) environment.push_back(text);
  }
  for (const auto& [name, value] : env) {
    if (!value.empty()) environment.push_back(name + "=" + value);
  }
  std::vector<char*> argv, envp;
  for (std::string& a : arguments) argv.push_back(a.data());
  for (std::string& e : environment) envp.push_back(e.data());
  argv.push_back(nullptr);
  envp.push_back(nullptr);

  // The child starts in `cwd` by a file action: a chdir here would move the
  // whole test process.
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, in_path.c_str(), O_RDONLY, 0);
  posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, out_path.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, err_path.c_str(),
                                   O_WRONLY | O_CREAT | O_TRUNC, 0644);
  posix_spawn_file_actions_addchdir_np(&actions, cwd.c_str());
  pid_t pid = 0;
  KtRun run;
  const int spawned = posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), envp.data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) {
    ADD_FAILURE() << "cannot start " << argv[0] << ": " << std::strerror(spawned);
    return run;
  }
  int wait_status = 0;
  waitpid(pid, &wait_status, 0);
  run.status = WIFEXITED(wait_status) ? WEXITSTATUS(wait_status) : 128 + WTERMSIG(wait_status);
  if (streams.stdout_path.empty()) run.out = ReadFile(out_path);
  run.err = ReadFile(err_path);
  return run;
}

std::string SourcePath(const std::string& relative) {
  return std::string(KT_SOURCE_DIR) + "/" + relative;
}

}  // namespace kt::test
