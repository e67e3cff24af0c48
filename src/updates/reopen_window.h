// The window of the product, opened again after an update has closed it.
#pragma once

#include <cstdint>

namespace kestrelon {

// Starts the user interface in a session, with the rights that the user's full token has. Does
// nothing where nobody is signed in.
void ReopenWindow(std::uint32_t session);

// Remembers a session whose window is to be opened once the core is up; kNoSession for none.
void RequestReopen(std::uint32_t session);

// Opens the window that was asked for, once.
void ReopenRequestedWindow();

}  // namespace kestrelon
