#pragma once
// What the tests of zvol's verbs share: a folder of files for one test, and
// the two endings a run may have.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/run.h"

namespace zvtest {

// Paths in a fresh folder: files("a.vdb").
struct Files {
  std::string dir = TempDir();
  std::string operator()(const std::string& name) const { return dir + "/" + name; }
};

inline void ExpectOk(const RunResult& r) { ASSERT_EQ(r.status, 0) << r.err; }

// A refusal as zvol gives it: exit status 1 and one "error:" line, the last,
// holding `words`; no output file left behind.
inline void ExpectRefused(const RunResult& r, const std::string& words, const std::string& output) {
  EXPECT_EQ(r.status, 1) << r.err;
  const size_t at = r.err.find("error: ");
  ASSERT_NE(at, std::string::npos) << r.err;
  EXPECT_TRUE(at == 0 || r.err[at - 1] == '\n') << r.err;
  EXPECT_EQ(r.err.find("error: ", at + 1), std::string::npos) << r.err;
  EXPECT_EQ(r.err.find('\n', at), r.err.size() - 1) << r.err;
  EXPECT_NE(r.err.find(words, at), std::string::npos) << r.err;
  EXPECT_FALSE(std::filesystem::exists(output)) << output;
}

// Runs a pyopenvdb script and returns its stdout. The script may use
// read(path) (the first grid of a file), at(grid, world position),
// zero(grid, position) (a value within 0.02 of 0) and near(v, w, tolerance)
// for numbers and tuples.
inline std::string Py(const std::string& body) {
  const auto r = Python(
      "import pyopenvdb as vdb\n"
      "def read(p):\n"
      "    return vdb.readAll(p)[0][0]\n"
      "def at(g, p):\n"
      "    return g.getConstAccessor().getValue(g.transform.worldToIndexCellCentered(p))\n"
      "def zero(g, p):\n"
      "    return abs(at(g, p)) < 0.02\n"
      "def near(v, w, tol):\n"
      "    return all(abs(a - b) <= tol for a, b in zip(v, w)) if isinstance(v, tuple) else abs(v - w) <= tol\n" +
      body);
  EXPECT_EQ(r.status, 0) << r.err;
  return r.out;
}

}  // namespace zvtest
