// Failing the n-th allocation of the code under test. The test program is linked so that the
// codec's malloc and free come here; unarmed they go straight to the runtime's.
#ifndef TESTS_ADPCM_MALLOC_H_
#define TESTS_ADPCM_MALLOC_H_

namespace malloc_fault {

// From now on the n-th allocation (from 1) fails, alone or with all later ones, and blocks are
// counted. 0: none fails.
void Arm(int n, bool forGood);
// Ends that; the result is the number of allocations since Arm.
int Disarm();
// Blocks allocated since Arm that are not free yet.
int LiveBlocks();

}  // namespace malloc_fault

#endif  // TESTS_ADPCM_MALLOC_H_
