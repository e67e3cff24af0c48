#include "bench/measure.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <ctime>

namespace kestrelon {
namespace {

constexpr int kRounds = 9;

double Nanoseconds(clockid_t clock) {
  timespec now{};
  if (clock_gettime(clock, &now) != 0) std::abort();
  return 1e9 * static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec);
}

// As many digits as a reading is worth.
std::string Rounded(double value) {
  char text[32];
  std::snprintf(text, sizeof text, value < 9.95 ? "%.2f" : value < 99.5 ? "%.1f" : "%.0f", value);
  return text;
}

std::string PromiseText(const Figure& figure) {
  if (figure.most_ratio != 0) return "at most " + Rounded(figure.most_ratio) + " of it";
  if (figure.most_taken != 0) return "at most " + TimeText(figure.most_taken);
  return "";
}

bool Kept(const Figure& figure) {
  return (figure.most_ratio == 0 || figure.taken <= figure.most_ratio * figure.bound_taken) &&
         (figure.most_taken == 0 || figure.taken <= figure.most_taken);
}

void PrintRow(const std::string& what, const std::string& figure, const std::string& bound,
              const std::string& ratio, const std::string& promised, bool kept) {
  std::printf("| %s | %s | %s | %s | %s%s |\n", what.c_str(), figure.c_str(), bound.c_str(),
              ratio.c_str(), promised.c_str(), kept ? "" : " **missed**");
}

}  // namespace

double ThreadNanoseconds() {
  return Nanoseconds(CLOCK_THREAD_CPUTIME_ID);
}

double ProcessNanoseconds() {
  return Nanoseconds(CLOCK_PROCESS_CPUTIME_ID);
}

std::vector<double> InTurn(const std::vector<Work>& works) {
  std::vector<double> best(works.size());
  for (int round = 0; round < kRounds; ++round) {
    for (std::size_t i = 0; i < works.size(); ++i) {
      const double begin = ThreadNanoseconds();
      works[i]();
      const double taken = ThreadNanoseconds() - begin;
      best[i] = round == 0 ? taken : std::min(best[i], taken);
    }
  }
  return best;
}

double Nanoseconds(const Work& work) {
  return InTurn({work}).front();
}

double NanosecondsOfEach(std::uint32_t runs, const std::function<void(std::uint32_t)>& one) {
  return Nanoseconds([&] {
           for (std::uint32_t n = 0; n < runs; ++n) one(n);
         }) /
         runs;
}

void Require(bool worked) {
  if (worked) return;
  std::fputs("the benchmark's own input was not taken\n", stderr);
  std::exit(1);
}

void PrintSection(const char* title, const char* paragraph) {
  std::printf("\n## %s\n\n%s\n\n", title, paragraph);
  std::printf("| What | Figure | Peer or bound | Ratio | Promised |\n|---|---|---|---|---|\n");
}

void Print(const Figure& figure) {
  const bool bounded = figure.bound_taken > 0;
  const std::string without =
      figure.simulation == 0 ? "" : ", without the simulation's " + TimeText(figure.simulation);
  PrintRow(figure.what + without, TimeText(figure.taken),
           bounded ? figure.bound + ": " + TimeText(figure.bound_taken) : "",
           bounded ? Rounded(figure.taken / figure.bound_taken) : "", PromiseText(figure),
           Kept(figure));
}

void PrintFact(const std::string& what, const std::string& fact, const std::string& promised,
               bool kept) {
  PrintRow(what, fact, "", "", promised, kept);
}

std::string TimeText(double nanoseconds) {
  if (nanoseconds < 1e3) return Rounded(nanoseconds) + " ns";
  if (nanoseconds < 1e6) return Rounded(nanoseconds / 1e3) + " µs";
  return Rounded(nanoseconds / 1e6) + " ms";
}

}  // namespace kestrelon
