// What the bench's programs and its BFE say to each other on the pipe.
//
// A message is a 32-bit length and that many bytes. Each request is an operation and its arguments;
// each reply is a platform code and, when it is 0, the results. A connection is one session: it
// begins with kOpen and ends when the pipe does, with everything that a session's end means. A
// connection that begins with kListen is no session but the way by which what one subscription is
// told comes: behind the reply, one message for each filter change or net event. kClassify needs no
// session.
#pragma once

#include <cstddef>
#include <cstdint>

namespace simulation {

inline constexpr wchar_t kBenchPipe[] = L"\\\\.\\pipe\\WfpBench";

// Longer messages are refused as malformed. A filter of 100,000 conditions takes 5 MB.
inline constexpr std::size_t kLongestMessage = 64u << 20;
// An enumeration's reply is cut here and goes on with the next request.
inline constexpr std::size_t kEnumReplyBytes = 4u << 20;

// Codes of the remote procedure calls that the real interface is made of, as its callers see them.
inline constexpr std::uint32_t kServerUnavailable = 1722;  // the connection was lost earlier
inline constexpr std::uint32_t kCallFailed = 1726;         // the connection was lost in this call
inline constexpr std::uint32_t kBadStubData = 1783;        // a message was malformed or too long

// Behind each: arguments -> results.
enum class Operation : std::uint8_t {
  kOpen = 1,          // u8 caller, text name, u32 flags, u32 transaction wait in ms ->
  kListen,            // u64 stream ->
  kAddProvider,       // provider, blob descriptor ->
  kAddSublayer,       // sublayer, blob descriptor ->
  kAddFilter,         // filter, blob descriptor -> u64 id
  kDeleteProvider,    // key ->
  kDeleteSublayer,    // key ->
  kDeleteFilter,      // key ->
  kGetProvider,       // key -> provider
  kGetSublayer,       // key -> sublayer
  kGetFilter,         // key -> filter
  kSetProviderDacl,   // key, blob descriptor ->
  kSetSublayerDacl,   // key, blob descriptor ->
  kSetFilterDacl,     // key, blob descriptor ->
  kBegin,             // u32 flags ->
  kCommit,            // ->
  kAbort,             // ->
  kOpenEnum,          // -> u64 enumeration
  kNextFilters,       // u64 enumeration, u32 count -> u8 whether it is the end, u32 n, n filters
  kCloseEnum,         // u64 enumeration ->
  kSubscribeChanges,  // u32 flags -> u64 stream
  kUnsubscribe,       // u64 stream, of either kind ->
  kClassify,          // u32 n, n connections -> n verdict summaries
  kClose,             // -> ; by then the session has ended
  kSetOption,         // u32 option, u32 value ->
  kGetOption,         // u32 option -> u32 value
  kGetLayerId,        // key -> u16 id
  kSubscribeEvents,   // -> u64 stream
};

// Who a session's owner is. A program cannot be LocalSystem under Wine, so it says who it stands
// for, and the bench believes it.
enum class BenchCaller : std::uint8_t { kSystem = 0, kAdministrator = 1 };

}  // namespace simulation
