// The classes of the AppKit bridge as the Objective-C runtime knows them: what others that look
// for them by name will find. Needs no display.
#include <gtest/gtest.h>
#include <objc/runtime.h>

#include <cstdlib>
#include <ostream>
#include <set>
#include <string>

/// The leak checker asks for it by this name: what the runtime keeps of its classes.
extern "C" const char* __lsan_default_suppressions() {  // NOLINT(bugprone-reserved-identifier)
  return "leak:libobjc.so\nleak:libgnustep-base.so\n";
}

namespace quarn::testing {
namespace {

using Names = std::set<std::string>;

struct ToolkitClass {
  const char* name;
  const char* base;
  Names instance_data;
  Names methods;
};

void PrintTo(const ToolkitClass& of, std::ostream* out) { *out << of.name; }

Names InstanceData(Class of) {
  Names names;
  unsigned count = 0;
  Ivar* const variables = class_copyIvarList(of, &count);
  for (unsigned i = 0; i < count; ++i) names.insert(ivar_getName(variables[i]));
  std::free(variables);
  return names;
}

Names OwnMethods(Class of) {
  Names names;
  unsigned count = 0;
  Method* const methods = class_copyMethodList(of, &count);
  for (unsigned i = 0; i < count; ++i) names.insert(sel_getName(method_getName(methods[i])));
  std::free(methods);
  return names;
}

class ToolkitClassTest : public ::testing::TestWithParam<ToolkitClass> {
 protected:
  Class GetClass() const { return objc_getClass(GetParam().name); }
};

TEST_P(ToolkitClassTest, HasExactlyItsBaseDataAndMethods) {
  const Class of = GetClass();
  ASSERT_NE(of, nullptr);
  EXPECT_STREQ(class_getName(class_getSuperclass(of)), GetParam().base);
  EXPECT_EQ(InstanceData(of), GetParam().instance_data);
  EXPECT_EQ(OwnMethods(of), GetParam().methods);
}

/// The controller is a plain pointer to it, which nobody counts.
TEST_P(ToolkitClassTest, KnowsTheControllerByAPointer) {
  const Ivar variable = class_getInstanceVariable(GetClass(), "m_mainDlg");
  ASSERT_EQ(variable != nullptr, GetParam().instance_data.contains("m_mainDlg"));
  if (variable == nullptr) return;
  const std::string type = ivar_getTypeEncoding(variable);
  EXPECT_TRUE(type.starts_with("^")) << type;
  EXPECT_NE(type.find("CInstallerDlg"), std::string::npos) << type;
}

INSTANTIATE_TEST_SUITE_P(
    All, ToolkitClassTest,
    ::testing::Values(ToolkitClass{"ExtNSWindowDelegate", "NSObject", {}, {"windowWillClose:"}},
                      ToolkitClass{"ExtNSApplicationDelegate",
                                   "NSObject",
                                   {},
                                   {"applicationShouldTerminateAfterLastWindowClosed:"}},
                      ToolkitClass{
                          "ExtNSWindow",
                          "NSWindow",
                          {"m_mainDlg"},
                          {"initWithContentRectAndDlg:styleMask:backing:defer:dlg:", "keyDown:"}},
                      ToolkitClass{"FlippedNSView", "NSView", {}, {"isFlipped"}},
                      ToolkitClass{"ExtNSButton",
                                   "NSButton",
                                   {"m_mainDlg"},
                                   {"initWithFrameAndDlg:dlg:", "on_buttonPrev_clicked:",
                                    "on_buttonNext_clicked:", "button_clicked_handler:",
                                    "dir_button_clicked_handler:"}}),
    [](const auto& tested) { return std::string(tested.param.name); });

/// Calls a method without arguments that does not look at its object.
bool Answer(const char* of, const char* method) {
  const SEL selector = sel_registerName(method);
  const IMP implementation = class_getMethodImplementation(objc_getClass(of), selector);
  return reinterpret_cast<BOOL (*)(id, SEL, id)>(reinterpret_cast<void (*)()>(implementation))(
      nullptr, selector, nullptr);
}

TEST(ToolkitClasses, PagesHaveTheirOriginAtTheTop) {
  EXPECT_TRUE(Answer("FlippedNSView", "isFlipped"));
}

TEST(ToolkitClasses, TheApplicationEndsWithItsLastWindow) {
  EXPECT_TRUE(
      Answer("ExtNSApplicationDelegate", "applicationShouldTerminateAfterLastWindowClosed:"));
}

}  // namespace
}  // namespace quarn::testing
