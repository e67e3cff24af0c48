#include "platform/system_text.h"

#include <span>

#include "simulation/machine/letter_case.h"

namespace kestrelon::platform {
namespace {

struct Message {
  Code code;
  const wchar_t* text;
};

// The system's own messages, in its words.
constexpr Message kSystemMessages[] = {
    {0, L"The operation completed successfully.\r\n"},
    {1, L"Incorrect function.\r\n"},
    {2, L"The system cannot find the file specified.\r\n"},
    {3, L"The system cannot find the path specified.\r\n"},
    {5, L"Access is denied.\r\n"},
    {6, L"The handle is invalid.\r\n"},
    {8, L"Not enough memory resources are available to process this command.\r\n"},
    {17, L"The system cannot move the file to a different disk drive.\r\n"},
    {18, L"There are no more files.\r\n"},
    {32, L"The process cannot access the file because it is being used by another process.\r\n"},
    {50, L"The request is not supported.\r\n"},
    {53, L"The network path was not found.\r\n"},
    {80, L"The file exists.\r\n"},
    {87, L"The parameter is incorrect.\r\n"},
    {111, L"The file name is too long.\r\n"},
    {112, L"There is not enough space on the disk.\r\n"},
    {122, L"The data area passed to a system call is too small.\r\n"},
    {123, L"The filename, directory name, or volume label syntax is incorrect.\r\n"},
    {127, L"The specified procedure could not be found.\r\n"},
    {145, L"The directory is not empty.\r\n"},
    {183, L"Cannot create a file when that file already exists.\r\n"},
    {1060, L"The specified service does not exist as an installed service.\r\n"},
    {1062, L"The service has not been started.\r\n"},
    {1117, L"The request could not be performed because of an I/O device error.\r\n"},
    {1168, L"Element not found.\r\n"},
    {1332, L"No mapping between account names and security IDs was done.\r\n"},
    {1336, L"The access control list (ACL) structure is invalid.\r\n"},
    {1337, L"The security ID structure is invalid.\r\n"},
    {1338, L"The security descriptor structure is invalid.\r\n"},
    {1630, L"Data of this type is not supported.\r\n"},
    {1753, L"There are no more endpoints available from the endpoint mapper.\r\n"},
    {1812, L"The specified image file did not contain a resource section.\r\n"},
    {kCalloutNotFound, L"The callout does not exist.\r\n"},
    {kFilterNotFound, L"The filter does not exist.\r\n"},
    {kLayerNotFound, L"The layer does not exist.\r\n"},
    {kProviderNotFound, L"The provider does not exist.\r\n"},
    {kSublayerNotFound, L"The sublayer does not exist.\r\n"},
    {kObjectExists, L"An object with that GUID or LUID already exists.\r\n"},
    {kInUse, L"The object is referenced by other objects and cannot be deleted.\r\n"},
    {kNoTransaction, L"The call must be made from within an explicit transaction.\r\n"},
    {kTransactionInProgress, L"The call is not allowed from within an explicit transaction.\r\n"},
    {kTransactionAborted, L"The explicit transaction has been forcibly canceled.\r\n"},
    {kSessionAborted, L"The session has been canceled.\r\n"},
    {kTransactionTimeout,
     L"The call failed because a transaction lock could not be acquired in time.\r\n"},
    {kRevocationOffline,
     L"The revocation function was unable to check revocation because the revocation server was "
     L"offline.\r\n"},
    {kNoSignature, L"No signature was present in the subject.\r\n"},
    {kBadDigest, L"The digital signature of the object did not verify.\r\n"},
};

// Those of the HTTP client, which its own module holds.
constexpr Message kHttpMessages[] = {
    {12002, L"The operation timed out\r\n"},
    {12007, L"The server name or address could not be resolved\r\n"},
    {12029, L"A connection with the server could not be established\r\n"},
    {12030, L"The connection with the server was terminated abnormally\r\n"},
    {12175, L"A security error occurred\r\n"},
};

std::wstring MessageOf(std::span<const Message> messages, Code code) {
  for (const Message& message : messages) {
    if (message.code == code) return message.text;
  }
  return {};
}

}  // namespace

bool EqualIgnoringCase(std::wstring_view a, std::wstring_view b) {
  return a.size() == b.size() && simulation::FoldCase(a) == simulation::FoldCase(b);
}

bool StartsWithIgnoringCase(std::wstring_view text, std::wstring_view prefix) {
  return text.size() >= prefix.size() && EqualIgnoringCase(text.substr(0, prefix.size()), prefix);
}

std::wstring LowerCase(std::wstring_view text) {
  std::wstring lower(text);
  for (wchar_t& letter : lower) letter = simulation::LowerLetter(letter);
  return lower;
}

std::wstring SystemMessage(Code code) {
  return MessageOf(kSystemMessages, code);
}

// Of the modules that the product loads, those of the filtering engine find their messages among
// the system's.
std::wstring ModuleMessage(const std::wstring& module, Code code) {
  if (!EqualIgnoringCase(module, L"winhttp.dll")) return {};
  return MessageOf(kHttpMessages, code);
}

}  // namespace kestrelon::platform
