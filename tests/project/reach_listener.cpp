// Stands in the test programs that ./check mutants builds. When they run with the library that records what it reaches,
// it has that listed for each test: what ran between two tests of a suite under "<suite>.*", what ran between suites
// under "*".
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <string>

namespace {

using List = void (*)(const char*);

class ReachListener : public ::testing::EmptyTestEventListener {
  public:
    explicit ReachListener(List list) : list_(list) {}

    void OnTestSuiteStart(const ::testing::TestSuite&) override { list_("*"); }
    void OnTestStart(const ::testing::TestInfo& test) override { listFor(test.test_suite_name(), "*"); }
    void OnTestEnd(const ::testing::TestInfo& test) override { listFor(test.test_suite_name(), test.name()); }
    void OnTestSuiteEnd(const ::testing::TestSuite& suite) override { listFor(suite.name(), "*"); }
    void OnTestProgramEnd(const ::testing::UnitTest&) override { list_("*"); }

  private:
    void listFor(const std::string& suite, const std::string& test) { list_((suite + "." + test).c_str()); }

    List list_;
};

const bool installed = [] {
    const auto list = reinterpret_cast<List>(::dlsym(RTLD_DEFAULT, "tabulo_listReached"));
    if (list != nullptr) {
        ::testing::UnitTest::GetInstance()->listeners().Append(new ReachListener(list));
    }
    return list != nullptr;
}();

}  // namespace
