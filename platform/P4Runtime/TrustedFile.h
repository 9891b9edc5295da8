// Opening a file whose contents will be run: nobody but root and the user of this process may have
// had a hand in it.
//
// Every part of the path is looked at on the way from the root, through the descriptor of the part
// before, so that none can be exchanged between the look and the use; symbolic links are followed
// one by one, and what they lead to is looked at as well. A directory that others may write to is
// refused, unless its sticky bit keeps them from replacing what is not theirs.
#pragma once

#include <filesystem>

#include "platform/Guard/Exception.h"
#include "platform/Kit/FileDescriptor.h"

namespace P4Runtime {

// The text names the part of the path, what was found and what was expected.
class UntrustedFileException final : public Guard::Throwable<UntrustedFileException> {
 public:
  using Throwable::Throwable;
};

// Opens a regular file for reading. requires: `file` is an absolute path. Throws
// UntrustedFileException.
Kit::FileDescriptor openTrusted(const std::filesystem::path& file);

}  // namespace P4Runtime
