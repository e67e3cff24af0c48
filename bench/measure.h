// Measuring, and the rows of docs/performance.md, which the benchmarks print.
//
// All times are the processor's and the best of some rounds: what the code takes when nothing else
// runs. Beside each stands what a peer or the least possible work takes in the same rounds.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace kestrelon {

using Work = std::function<void()>;

// Processor time so far of the calling thread, or of the process with all of its threads.
[[nodiscard]] double ThreadNanoseconds();
[[nodiscard]] double ProcessNanoseconds();

// Nanoseconds of the calling thread that each of the works takes. They take turns, so that what
// slows the machine down slows them all.
[[nodiscard]] std::vector<double> InTurn(const std::vector<Work>& works);
[[nodiscard]] double Nanoseconds(const Work& work);

// What one of so many runs takes; the number of the run is handed in.
[[nodiscard]] double NanosecondsOfEach(std::uint32_t runs,
                                       const std::function<void(std::uint32_t)>& one);

// Ends the program unless the benchmark's own input was taken.
void Require(bool worked);

struct Figure {
  std::string what;
  double taken = 0;  // nanoseconds
  std::string bound = {};
  double bound_taken = 0;
  double most_ratio = 0;  // promised, of the bound's time; 0 if nothing is
  double most_taken = 0;  // promised, in nanoseconds; 0 if nothing is
  double simulation = 0;  // the simulated machine's own share, which `taken` is without
};

// A section: its title, a paragraph, the head of its table. The rows follow.
void PrintSection(const char* title, const char* paragraph);
void Print(const Figure& figure);

// A row that is no time.
void PrintFact(const std::string& what, const std::string& fact, const std::string& promised,
               bool kept);

// "1.5 ms"
[[nodiscard]] std::string TimeText(double nanoseconds);

}  // namespace kestrelon
