// The options the file family reads, in one place.
#pragma once

namespace vq::files {

// The suffix held by "backup_name": false when the option does not exist;
// true with *suffix null when it has no value.
bool backupSuffix(const char **suffix);

// The editor held by "editor", or null when it has no value.
const char *editorOption();

}  // namespace vq::files
