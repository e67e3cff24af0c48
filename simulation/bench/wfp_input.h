// From the structures of the platform's interface to records: the arguments of the library's calls.
//
// Written apart from the product's own conversion, so that a mistake in either shows. What the
// interface itself refuses (null pointers, above all) is refused here; everything else is the
// engine's to judge.
#pragma once

#include <windows.h>

#include <fwpmu.h>

#include "platform/codes.h"
#include "simulation/engine/wire.h"

namespace simulation {

using kestrelon::platform::Code;

Guid GuidOf(const GUID& guid);

// Each gives 0, or the code with which the call is refused; outputs are then undefined. Types of
// values that the records do not know become OtherValue. Not carried over: provider data, contexts.
[[nodiscard]] Code RecordOf(const FWPM_PROVIDER0* native, Provider& record);
[[nodiscard]] Code RecordOf(const FWPM_SUBLAYER0* native, Sublayer& record);
[[nodiscard]] Code RecordOf(const FWPM_FILTER0* native, Filter& record);

// The self-relative bytes of a descriptor in either form; empty for a null pointer.
[[nodiscard]] Code BytesOfDescriptor(PSECURITY_DESCRIPTOR descriptor, Bytes& bytes);

// A descriptor that holds this access list and nothing else; the null list if it is null.
[[nodiscard]] Code DescriptorOfDacl(const ACL* dacl, Bytes& bytes);

}  // namespace simulation
