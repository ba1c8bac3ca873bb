// Clean: moves what a crash left in the sample folder out of the way. Nothing is deleted.
#ifndef HOST_CLEAN_H_
#define HOST_CLEAN_H_

#include "host/verbs.h"

namespace samplehost {

// Lists the folders in the sample folder that have a UUID for a name and are named by no node of
// this database, nor of another one in its folder, with their sizes; moves them, without `dryRun`,
// to the folder "orphans" beside the sample folder. Links and folders of other file systems are no
// business of it. Refused where a node's data cannot be read: nobody knows its folder then.
int Clean(const Context& context, bool dryRun);

}  // namespace samplehost

#endif  // HOST_CLEAN_H_
