#pragma once

#include <string>
#include <string_view>

namespace brimvale::SavedScanNames {

// Every saved scan has a key naming what was scanned, and a file name made from the key.
//
// Keys: a cloud account or a whole local disk has its account id as key ("%" and ":" written
// "%25" and "%3A"), a local folder the account's key, ":" and the folder's path. No two
// (account, folder) pairs share a key.
//
// File stems: a key of at most 120 bytes made only of characters that are safe and readable in
// a file name is its own stem, as it always was ("gdrive", "localdisk"). Any other key gets
// "<account>~<folder>~<hash>": a readable prefix of each part (at most 48 and 64 bytes, unsafe
// characters as "_") and 16 hexadecimal digits of a 64-bit hash of the whole key. Stems stay
// under 140 bytes, far from the 255-byte file name limit, and a hashed stem always holds
// exactly two "~" while a plain one holds none. Two keys could still share a hashed stem, so the
// key is stored in the saved scan and compared when it is read.

std::string accountKey(std::string_view accountID);
std::string folderKey(std::string_view accountID, std::string_view folderPath);

std::string fileStem(std::string_view key);
bool isHashedStem(std::string_view stem);

// Whether `key` is the account's own key or the key of one of its folders.
bool keyBelongsToAccount(std::string_view key, std::string_view accountID);
// Whether a file stem may be one of the account's saved scans (a hashed stem is confirmed by
// the key stored in the file).
bool stemMayBelongToAccount(std::string_view stem, std::string_view accountID);

} // namespace brimvale::SavedScanNames
