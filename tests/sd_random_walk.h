// A random walk of a user through the library, beside a plain model of what it has to do.
#ifndef TESTS_SD_RANDOM_WALK_H_
#define TESTS_SD_RANDOM_WALK_H_

#include <cstdint>
#include <string>

namespace sdtest {

// Walks `steps` steps, the same for the same seed. Behind each of them answers, sample lists, undo
// records, the two lists of files and every file on the disk are compared with the model's. Empty
// where all agree; else what differs, the last steps, and the line that repeats the walk.
std::string RandomWalk(std::uint64_t seed, long steps);

}  // namespace sdtest

#endif  // TESTS_SD_RANDOM_WALK_H_
