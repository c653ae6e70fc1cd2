#include <Tambour/File.hpp>
#include <Tambour/FileInitializable.hpp>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace tarn {
namespace {

struct Length {
  std::size_t value = 0;
  static Length fromFile(const URL& fileURL) { return {fileURL.path().size()}; }
};
struct Fails {
  static Fails fromFile(const URL&) { throw std::runtime_error("not today"); }
};
struct AnswersAnother {
  static Length fromFile(const URL&) { return {}; }
};
struct NotStatic {
  NotStatic fromFile(const URL&) const { return {}; }
};

static_assert(FileInitializable<File>);
static_assert(FileInitializable<Length>);
static_assert(FileInitializable<Fails>);
static_assert(!FileInitializable<AnswersAnother>);
static_assert(!FileInitializable<NotStatic>);
static_assert(!FileInitializable<Data>);

template <FileInitializable T>
T make(const URL& fileURL) {
  return T::fromFile(fileURL);
}

TEST(FileInitializableTests, MakesItselfFromTheFile) {
  EXPECT_EQ(make<Length>(URL::fileURL("/ab")).value, 3u);
  EXPECT_EQ(make<File>(URL::fileURL("/ab")).fileURL(), URL::fileURL("/ab"));
  EXPECT_THROW(make<Fails>(URL::fileURL("/ab")), std::runtime_error);
}

}  // namespace
}  // namespace tarn
