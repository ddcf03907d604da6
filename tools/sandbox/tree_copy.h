// SPDX-License-Identifier: Apache-2.0
// Copying a directory tree as it is: files, directories (with their modes),
// symbolic links as links, FIFOs and sockets as new ones, device nodes where
// the caller may create them. An error names the file it stopped at.
#pragma once

#include <string>

namespace sandbox {

// Copies the content of |from| into the existing directory |to|, replacing
// what is there under the same names; never descends into |skip|.
bool CopyTree(const std::string& from, const std::string& to, std::string* error,
              const std::string& skip = "");

// Makes every directory below |dir| writable and searchable, so that a tree
// the library left with 0555 directories can be removed.
void MakeRemovable(const std::string& dir);

}  // namespace sandbox
