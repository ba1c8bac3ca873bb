// The command line: what the user may type, and the way from there to a verb.
#ifndef HOST_COMMANDS_H_
#define HOST_COMMANDS_H_

namespace samplehost {

// Runs the program and gives its exit code: 0 all well, 1 some failed, 2 usage.
int RunCommandLine(int argc, char** argv);

}  // namespace samplehost

#endif  // HOST_COMMANDS_H_
