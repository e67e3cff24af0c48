// A text that stands for what is semantically in a filter, by which the audit notices a change.
//
// It is made from what the engine gave back, never from the plan, so a difference between what was
// asked for and how the engine keeps it is no finding. Name, description, key and id are left out.
#pragma once

#include <string>

#include "platform/wfp_records.h"

namespace kestrelon {

// Appends "{layer}|{sublayer}|a4097|f73|wt1:13|p{provider}", then "|c{field}m0=t2:443" for each
// condition in the engine's order. "p-" stands for no provider. A value is its type's number and
// what it holds; of a SID, a security descriptor and any type not listed in the source only "?" is
// told, so they are not compared.
void AppendFilterSignature(const platform::Filter& filter, std::string& out);

}  // namespace kestrelon
