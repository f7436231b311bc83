// The toolkit on AppKit, operation by operation: what the objects that it makes answer when they
// are asked. Needs an X server; a run starts one of its own. What needs a window
// manager is in tests/gui/scenarios/.
#include "wizard/mac/appkit_toolkit.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <objc/runtime.h>
#include <sys/prctl.h>
#include <unistd.h>

#include <csignal>
#include <cstdlib>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "tests/support/scratch.h"
#include "wizard/installer_dlg.h"
#include "wizard/mac/classes.h"
#include "wizard/mac/parts.h"

namespace quarn::testing {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

/// An X server without a screen. It ends with this process.
class Display {
 public:
  /// Its name, such as ":1"; empty when there is none.
  static const std::string& Name() {
    static const std::string name = Start();
    return name;
  }

 private:
  static std::string Start() {
    int ends[2];
    if (pipe(ends) != 0) return {};
    if (fork() == 0) {
      prctl(PR_SET_PDEATHSIG, SIGTERM);
      const std::string number = std::to_string(ends[1]);
      execlp("Xvfb", "Xvfb", "-displayfd", number.c_str(), "-screen", "0", "1280x960x24",
             "-nolisten", "tcp", "-noreset", nullptr);
      _exit(127);
    }
    close(ends[1]);
    std::string name = ":";
    char letter = 0;
    while (read(ends[0], &letter, 1) == 1 && letter != '\n') name += letter;
    close(ends[0]);
    return letter == '\n' ? name : std::string();
  }
};

/// Counts the messages, and answers those that a test does not want to see.
class Toolkit : public AppKitToolkit {
 public:
  int RunMessage(const MessageBox& message) override {
    ++messages;
    return answer ? *answer : AppKitToolkit::RunMessage(message);
  }

  int messages = 0;
  std::optional<int> answer;
};

/// Gives a method another implementation while it lives: a callable whose first argument is the
/// object.
class Replaced {
 public:
  template <class Callable>
  Replaced(Class of, SEL method, Callable implementation)
      : method_(class_getInstanceMethod(of, method)) {
    // Without blocks a callable is reached only from one place for each of its types.
    static std::optional<Callable> callable;
    callable.emplace(std::move(implementation));
    original_ = Set(method_, Thunk(&Callable::operator(), callable));
  }
  Replaced(const Replaced&) = delete;
  Replaced& operator=(const Replaced&) = delete;
  ~Replaced() { method_setImplementation(method_, original_); }

 private:
  using AnyFunction = void (*)();

  template <class Callable, class Result, class Self, class... Arguments>
  static AnyFunction Thunk(Result (Callable::*)(Self, Arguments...) const,
                           std::optional<Callable>& callable) {
    static std::optional<Callable>& target = callable;
    Result (*const function)(Self, SEL, Arguments...) = [](Self self, SEL, Arguments... arguments) {
      return (*target)(self, arguments...);
    };
    return reinterpret_cast<AnyFunction>(function);
  }
  static IMP Set(Method method, AnyFunction function) {
    return method_setImplementation(method, reinterpret_cast<IMP>(function));
  }

  Method method_;
  IMP original_;
};

std::string Text(NSString* string) { return string != nil ? [string UTF8String] : "(nil)"; }

std::string NameOf(id object) { return class_getName(object_getClass(object)); }

/// The controller that an object of the bridge has in its instance data.
const void* ControllerOf(id object) {
  const Ivar variable = class_getInstanceVariable(object_getClass(object), "m_mainDlg");
  return *reinterpret_cast<void**>(reinterpret_cast<char*>(object) + ivar_getOffset(variable));
}

std::vector<double> Numbers(NSRect rect) {
  return {NSMinX(rect), NSMinY(rect), NSWidth(rect), NSHeight(rect)};
}

class AppKitToolkitTest : public ScratchTest {
 protected:
  AppKitToolkitTest() {
    setenv("DISPLAY", Display::Name().c_str(), 1);
    setenv("LANG", "de_AT.UTF-8", 1);
    unsetenv("LC_ALL");
    toolkit_.emplace();
    setenv("LC_ALL", "C.UTF-8", 1);
    pool_ = [NSAutoreleasePool new];
  }
  ~AppKitToolkitTest() override {
    controller_.reset();
    toolkit_.reset();
    [pool_ release];
  }
  void SetUp() override { ASSERT_NE(Display::Name(), "") << "Xvfb does not start"; }

  /// The application, an empty window and its view.
  void SetUpWindow(const char* title = "Title") {
    controller_.emplace(1, argv_, false, title, u"en", false, *toolkit_);
    window_ = toolkit_->MakeMainWindow(*controller_, 500, 360, title);
    view_ = toolkit_->MakeView(window_);
  }
  void Show() { toolkit_->ShowWindow(window_); }

  /// The main window: the last one that was made, which has the highest number.
  static NSWindow* Window() {
    NSWindow* last = nil;
    NSArray* const windows = [NSApp windows];
    for (NSUInteger i = 0; i < [windows count]; ++i) {
      NSWindow* const window = [windows objectAtIndex:i];
      if (NameOf(window) != "ExtNSWindow") continue;
      if (last == nil || [window windowNumber] > [last windowNumber]) last = window;
    }
    return last;
  }
  static NSView* View() { return [[[Window() contentView] subviews] lastObject]; }
  /// The control that was made last.
  template <class Type>
  Type* Last() {
    NSView* const control = [[View() subviews] lastObject];
    EXPECT_TRUE([control isKindOfClass:[Type class]]) << NameOf(control);
    return static_cast<Type*>(control);
  }

  ToolkitControl* MakeButton(ButtonAction action) {
    return toolkit_->MakeButton(view_, {410, 320, 80, 30}, "Title", action);
  }

  /// One turn of the wizard's own loop.
  void Pump() {
    toolkit_->PumpEvent([](Point) {});
  }

  /// A key pressed and let go, with the code that an X server gives it. Returns when the program
  /// has seen it.
  void Press(NSString* letters, unsigned short code) {
    static NSTimeInterval stamp = 1e9;
    ++stamp;
    for (const NSEventType type : {NSKeyDown, NSKeyUp}) {
      [NSApp postEvent:[NSEvent keyEventWithType:type
                                              location:NSZeroPoint
                                         modifierFlags:0
                                             timestamp:stamp
                                          windowNumber:[Window() windowNumber]
                                               context:nil
                                            characters:letters
                           charactersIgnoringModifiers:letters
                                             isARepeat:NO
                                               keyCode:code]
               atStart:NO];
    }
    const auto seen = [] {
      NSEvent* const event = [NSApp currentEvent];
      return [event type] == NSKeyUp && [event timestamp] == stamp;
    };
    int turns = 0;
    while (!seen() && ++turns < 10000) Pump();
    EXPECT_TRUE(seen());
  }
  void PressEscape() { Press(@"\033", 9); }

  char name_[6] = "setup";
  char* argv_[2] = {name_, nullptr};
  NSAutoreleasePool* pool_;
  std::optional<Toolkit> toolkit_;
  std::optional<CInstallerDlg> controller_;
  ToolkitWindow* window_ = nullptr;
  ToolkitView* view_ = nullptr;
};

// --- The application and the window -----------------------------------------------------------

TEST_F(AppKitToolkitTest, TheLocaleIsTheOneOfTheStart) {
  EXPECT_EQ(toolkit_->LocaleIdentifier(), "de_AT");
}

TEST_F(AppKitToolkitTest, TheApplicationGetsItsDelegateThenIsARegularOneThenActive) {
  std::vector<std::string> calls;
  const Replaced delegate([NSApplication class], @selector(setDelegate:),
                          [&](id, id given) { calls.push_back(NameOf(given)); });
  const Replaced policy([NSApplication class], @selector(setActivationPolicy:),
                        [&](id, NSInteger given) {
                          calls.push_back("policy " + std::to_string(given));
                          return BOOL{YES};
                        });
  const Replaced activate([NSApplication class], @selector(activateIgnoringOtherApps:),
                          [&](id, BOOL given) {
                            if (!calls.empty()) {
                              calls.push_back("activate " + std::to_string(given));
                            }
                          });
  EXPECT_TRUE(toolkit_->SetUpApplication(1, argv_, false));
  EXPECT_THAT(calls, ElementsAre("ExtNSApplicationDelegate", "policy 0", "activate 1"));
}

TEST_F(AppKitToolkitTest, AnotherToolkitOfTheProcessSetsUpTheSameApplication) {
  ASSERT_TRUE(toolkit_->SetUpApplication(1, argv_, false));
  NSApplication* const application = NSApp;
  Toolkit other;
  EXPECT_TRUE(other.SetUpApplication(1, argv_, false));
  EXPECT_EQ(NSApp, application);
  // What is replaced of the desktop's own methods goes on to those, and not to itself.
  SetUpWindow();
  MakeButton(ButtonAction::kCancel);
  Show();
  Press(@"a", 38);
  EXPECT_EQ(toolkit_->messages, 0);
}

TEST_F(AppKitToolkitTest, TheWindowIsTitledAndClosableAndNothingElse) {
  SetUpWindow("Установка <A> & B");
  NSWindow* const window = Window();
  EXPECT_EQ(NameOf(window), "ExtNSWindow");
  EXPECT_EQ(ControllerOf(window), &*controller_);
  EXPECT_THAT(Numbers([[window contentView] frame]), ElementsAre(0, 0, 500, 360));
  EXPECT_EQ([window styleMask], 3u) << "neither resizable (8) nor minimisable (4)";
  EXPECT_EQ([window backingType], static_cast<NSBackingStoreType>(2));
  EXPECT_GT([window windowNumber], 0) << "not deferred: it is there before it shows";
  EXPECT_EQ(Text([window title]), "Установка <A> & B");
  EXPECT_FALSE([window isReleasedWhenClosed]);
}

TEST_F(AppKitToolkitTest, TheWindowIsCentred) {
  SetUpWindow();
  const NSRect frame = [Window() frame];
  NSRect centred = frame;
  [Window() setFrameOrigin:NSMakePoint(3, 4)];
  [Window() center];
  centred = [Window() frame];
  EXPECT_EQ(Numbers(frame), Numbers(centred));
}

TEST_F(AppKitToolkitTest, TheWindowIsWhite) {
  SetUpWindow();
  NSColor* const colour = [Window() backgroundColor];
  EXPECT_EQ(Text([colour colorSpaceName]), Text(NSCalibratedRGBColorSpace));
  EXPECT_EQ([colour redComponent], 1);
  EXPECT_EQ([colour greenComponent], 1);
  EXPECT_EQ([colour blueComponent], 1);
  EXPECT_EQ([colour alphaComponent], 1);
}

TEST_F(AppKitToolkitTest, TheViewIsAFlippedOneThatFillsTheWindow) {
  SetUpWindow();
  EXPECT_EQ(NameOf(View()), "FlippedNSView");
  EXPECT_TRUE([View() isFlipped]);
  EXPECT_THAT(Numbers([View() frame]), ElementsAre(0, 0, 500, 360));
  EXPECT_EQ([View() superview], [Window() contentView]);
}

TEST_F(AppKitToolkitTest, TheWindowShowsWithTheKeyboardAndNotBefore) {
  SetUpWindow();
  EXPECT_FALSE([Window() isVisible]);
  Show();
  EXPECT_TRUE([Window() isVisible]);
  EXPECT_TRUE([Window() isKeyWindow]);
  EXPECT_EQ([NSApp keyWindow], Window()) << "although the application does not run yet";
}

TEST_F(AppKitToolkitTest, ClosingTakesTheViewOutAndTheWindowAway) {
  SetUpWindow();
  Show();
  toolkit_->RemoveView(view_);
  EXPECT_EQ([[[Window() contentView] subviews] count], 0u);
  EXPECT_TRUE([Window() isVisible]);
  toolkit_->CloseWindow(window_);
  EXPECT_FALSE([Window() isVisible]);
  toolkit_->Run();  // at once, closed as it is
}

TEST_F(AppKitToolkitTest, HandlesAreHarmlessWhenTheWindowIsClosed) {
  SetUpWindow();
  ToolkitControl* const label = toolkit_->MakeLabel(view_, {0, 0, 10, 10}, "a");
  ToolkitControl* const field = toolkit_->MakeField(view_, {0, 0, 10, 10});
  ToolkitControl* const bar = toolkit_->MakeProgressBar(view_, {0, 0, 10, 10});
  ToolkitControl* const box = toolkit_->MakeCheckBox(view_, {0, 0, 10, 10}, "a", true);
  ToolkitControl* const button = MakeButton(ButtonAction::kCancel);
  Show();
  toolkit_->RemoveView(view_);
  toolkit_->CloseWindow(window_);
  for (ToolkitControl* const control : {label, field, box, button}) {
    toolkit_->SetVisible(control, false);
    toolkit_->SetVisible(control, true);
    toolkit_->SetEnabled(control, false);
    toolkit_->SetText(control, "b");
  }
  toolkit_->SetProgress(bar, 50);
  EXPECT_EQ(toolkit_->GetText(field), "b");
  EXPECT_TRUE(toolkit_->IsChecked(box));
  Pump();
}

// --- Controls ---------------------------------------------------------------------------------

TEST_F(AppKitToolkitTest, ALabelIsATextAndNothingAroundIt) {
  SetUpWindow();
  std::vector<BOOL> editable;
  ToolkitControl* control;
  {
    const Replaced set([NSTextField class], @selector(setEditable:),
                       [&](id, BOOL given) { editable.push_back(given); });
    control = toolkit_->MakeLabel(view_, {170, 10, 318, 286}, "a & <b> ж");
  }
  EXPECT_THAT(editable, ElementsAre(NO)) << "said although it follows from what GNUstep needs";
  NSTextField* const label = Last<NSTextField>();
  EXPECT_THAT(Numbers([label frame]), ElementsAre(170, 10, 318, 286));
  EXPECT_FALSE([label isEditable]);
  EXPECT_FALSE([label isBordered]);
  EXPECT_FALSE([label isBezeled]);
  EXPECT_FALSE([label drawsBackground]);
  EXPECT_FALSE([label isSelectable]);
  EXPECT_TRUE([[label cell] wraps]);
  EXPECT_EQ(Text([label stringValue]), "a & <b> ж");
  toolkit_->SetText(control, "c");
  EXPECT_EQ(Text([label stringValue]), "c");
}

TEST_F(AppKitToolkitTest, APictureIsScaledInProportionAndCentred) {
  SetUpWindow();
  toolkit_->MakePicture(view_, {0, 0, 158, 286}, toolkit_->MakeImage(SidePicture()));
  NSImageView* const picture = Last<NSImageView>();
  EXPECT_THAT(Numbers([picture frame]), ElementsAre(0, 0, 158, 286));
  EXPECT_EQ([picture imageScaling], static_cast<NSImageScaling>(3)) << "up or down";
  EXPECT_EQ([picture imageAlignment], static_cast<NSImageAlignment>(0));
  const NSImageRep* const shown = [[[picture image] representations] objectAtIndex:0];
  EXPECT_EQ([shown pixelsWide], 158);
  EXPECT_EQ([shown pixelsHigh], 286);
}

TEST_F(AppKitToolkitTest, AFieldIsEditableAndBorderedAndScrollsInsteadOfWrapping) {
  SetUpWindow();
  ToolkitControl* const control = toolkit_->MakeField(view_, {170, 275, 280, 30});
  NSTextField* const field = Last<NSTextField>();
  EXPECT_THAT(Numbers([field frame]), ElementsAre(170, 275, 280, 30));
  EXPECT_TRUE([field isEditable]);
  EXPECT_TRUE([field isBezeled]);
  EXPECT_TRUE([field drawsBackground]);
  EXPECT_TRUE([[field cell] isScrollable]);
  EXPECT_FALSE([[field cell] wraps]);
  EXPECT_EQ(toolkit_->GetText(control), "");
  for (const char* const text : {" /a b/ ", "C:\\шаблоны", "/模板/ğ"}) {
    toolkit_->SetText(control, text);
    EXPECT_EQ(Text([field stringValue]), text);
    EXPECT_EQ(toolkit_->GetText(control), text);
  }
}

struct ActionRow {
  ButtonAction action;
  const char* selector;
  int bezel;
};

TEST_F(AppKitToolkitTest, AButtonPressesItselfAndTellsTheController) {
  SetUpWindow();
  NSButtonCell* const momentary = [[[NSButtonCell alloc] init] autorelease];
  [momentary setButtonType:static_cast<NSButtonType>(0)];
  for (const ActionRow& row : {ActionRow{ButtonAction::kBack, "on_buttonPrev_clicked:", 1},
                               {ButtonAction::kNext, "on_buttonNext_clicked:", 1},
                               {ButtonAction::kCancel, "button_clicked_handler:", 1},
                               {ButtonAction::kBrowse, "dir_button_clicked_handler:", 11}}) {
    SCOPED_TRACE(row.selector);
    MakeButton(row.action);
    NSButton* const button = Last<NSButton>();
    NSButtonCell* const cell = [button cell];
    EXPECT_EQ(NameOf(button), "ExtNSButton");
    EXPECT_EQ(ControllerOf(button), &*controller_);
    EXPECT_THAT(Numbers([button frame]), ElementsAre(410, 320, 80, 30));
    EXPECT_EQ(Text([button title]), "Title");
    EXPECT_EQ([button target], button);
    EXPECT_STREQ(sel_getName([button action]), row.selector);
    EXPECT_EQ([button bezelStyle], static_cast<NSBezelStyle>(row.bezel));
    EXPECT_EQ([cell highlightsBy], [momentary highlightsBy]);
    EXPECT_EQ([cell showsStateBy], [momentary showsStateBy]);
    EXPECT_EQ(Text([button keyEquivalent]), "") << "Return presses none of them";
    EXPECT_TRUE([button isEnabled]);
    EXPECT_FALSE([button isHidden]);
  }
}

TEST_F(AppKitToolkitTest, PressingCancelAsksTheController) {
  SetUpWindow();
  toolkit_->answer = 1;
  MakeButton(ButtonAction::kCancel);
  Show();
  [Last<NSButton>() performClick:nil];
  EXPECT_EQ(toolkit_->messages, 1);
}

TEST_F(AppKitToolkitTest, ACheckBoxIsASwitchAndAsItWasMade) {
  SetUpWindow();
  NSButtonCell* const toggle = [[[NSButtonCell alloc] init] autorelease];
  [toggle setButtonType:static_cast<NSButtonType>(3)];
  for (const bool checked : {true, false}) {
    ToolkitControl* const control =
        toolkit_->MakeCheckBox(view_, {170, 170, 318, 20}, "Open", checked);
    NSButton* const box = Last<NSButton>();
    NSButtonCell* const cell = [box cell];
    EXPECT_THAT(Numbers([box frame]), ElementsAre(170, 170, 318, 20));
    EXPECT_EQ(Text([box title]), "Open");
    EXPECT_EQ([cell highlightsBy], [toggle highlightsBy]);
    EXPECT_EQ([cell showsStateBy], [toggle showsStateBy]);
    EXPECT_EQ([box state], checked ? 1 : 0);
    EXPECT_EQ(toolkit_->IsChecked(control), checked);
    [box performClick:nil];
    EXPECT_EQ(toolkit_->IsChecked(control), !checked);
  }
}

TEST_F(AppKitToolkitTest, ABarGoesFromZeroToAHundred) {
  SetUpWindow();
  ToolkitControl* const control = toolkit_->MakeProgressBar(view_, {10, 150, 480, 20});
  NSProgressIndicator* const bar = Last<NSProgressIndicator>();
  EXPECT_THAT(Numbers([bar frame]), ElementsAre(10, 150, 480, 20));
  EXPECT_FALSE([bar isIndeterminate]);
  EXPECT_EQ([bar minValue], 0);
  EXPECT_EQ([bar maxValue], 100);
  EXPECT_EQ([bar doubleValue], 0);
  toolkit_->SetProgress(control, 33);
  EXPECT_EQ([bar doubleValue], 33);
}

TEST_F(AppKitToolkitTest, TheSeparatorIsABoxOfItsKind) {
  SetUpWindow();
  toolkit_->MakeSeparator(view_, {10, 310, 480, 5});
  EXPECT_EQ([Last<NSBox>() boxType], static_cast<NSBoxType>(2));
  EXPECT_THAT(Numbers([Last<NSBox>() frame]), ElementsAre(10, 310, 480, 5));
}

TEST_F(AppKitToolkitTest, ControlsAreHiddenAndDisabledAsTheWizardAsks) {
  SetUpWindow();
  ToolkitControl* const control = MakeButton(ButtonAction::kNext);
  for (const bool on : {false, true}) {
    toolkit_->SetVisible(control, on);
    toolkit_->SetEnabled(control, on);
    EXPECT_EQ([Last<NSButton>() isHidden], !on);
    EXPECT_EQ([Last<NSButton>() isEnabled], on);
  }
}

TEST_F(AppKitToolkitTest, ATitleShrinksAsFarAsItMustAndGrowsBack) {
  SetUpWindow();
  ToolkitControl* const control = MakeButton(ButtonAction::kNext);
  const auto size = [this] { return [[Last<NSButton>() font] pointSize]; };
  const CGFloat usual = [NSFont systemFontSize];
  EXPECT_EQ(size(), usual);
  toolkit_->SetText(control, "WWWWWWWW");
  EXPECT_LT(size(), usual);
  toolkit_->SetText(control, "WWWWWWWWWWWWWWWWWWWW");
  EXPECT_EQ(size(), 9) << "smaller ones cannot be read";
  toolkit_->SetText(control, "OK");
  EXPECT_EQ(size(), usual);
}

// --- Keys -------------------------------------------------------------------------------------

class KeyTest : public AppKitToolkitTest {
 protected:
  void SetUp() override {
    AppKitToolkitTest::SetUp();
    SetUpWindow();
    toolkit_->answer = 1;  // No
    button_ = MakeButton(ButtonAction::kNext);
    next_ = Last<NSButton>();
    field_ = toolkit_->MakeField(view_, {170, 275, 280, 30});
    path_ = Last<NSTextField>();
    toolkit_->MakeCheckBox(view_, {170, 170, 318, 20}, "Open", true);
    box_ = Last<NSButton>();
    toolkit_->SetText(field_, "/templates");
    Show();
  }

  NSText* Editor() const { return [path_ currentEditor]; }
  /// What pasting comes down to.
  void Insert(NSString* text) {
    const id editor = Editor();
    [editor insertText:text];
  }

  ToolkitControl* button_;
  ToolkitControl* field_;
  NSButton* next_;
  NSButton* box_;
  NSTextField* path_;
};

TEST_F(KeyTest, EscapeAsksOnceFromEveryControl) {
  int expected = 0;
  for (NSResponder* const responder :
       {static_cast<NSResponder*>(Window()), static_cast<NSResponder*>(next_),
        static_cast<NSResponder*>(box_), static_cast<NSResponder*>(path_)}) {
    ASSERT_TRUE([Window() makeFirstResponder:responder]);
    PressEscape();
    EXPECT_EQ(toolkit_->messages, ++expected) << NameOf(responder);
    PressEscape();
    EXPECT_EQ(toolkit_->messages, ++expected) << "again, " << NameOf(responder);
  }
}

TEST_F(KeyTest, EscapeLeavesTheFieldAsItIs) {
  [Window() makeFirstResponder:path_];
  [Editor() setSelectedRange:NSMakeRange(10, 0)];
  Press(@"/", 61);
  ASSERT_EQ(toolkit_->GetText(field_), "/templates/");
  PressEscape();
  EXPECT_EQ(toolkit_->messages, 1);
  EXPECT_NE(Editor(), nil) << "the caret stays in it";
  Press(@"a", 38);
  EXPECT_EQ(toolkit_->GetText(field_), "/templates/a");
}

TEST_F(KeyTest, TheEditorOfTheFieldMakesNothingOfAnEscapeItself) {
  int completions = 0;
  const Replaced complete([NSTextView class], @selector(complete:), [&](id, id) { ++completions; });
  [Window() makeFirstResponder:path_];
  PressEscape();
  EXPECT_EQ(toolkit_->messages, 1);
  EXPECT_EQ(completions, 0);
}

TEST_F(KeyTest, EveryOtherCommandIsTheEditors) {
  [Window() makeFirstResponder:path_];
  [Editor() setSelectedRange:NSMakeRange(10, 0)];
  Press(@"\177", 22);  // the backspace key
  EXPECT_EQ(toolkit_->GetText(field_), "/template");
}

TEST_F(KeyTest, TheWindowMayBeClosedByAnEscapeOfTheField) {
  toolkit_->answer = 0;  // Yes
  [Window() makeFirstResponder:path_];
  PressEscape();
  EXPECT_EQ(toolkit_->messages, 1);
}

TEST_F(KeyTest, NoOtherKeyAsks) {
  for (NSResponder* const responder :
       {static_cast<NSResponder*>(Window()), static_cast<NSResponder*>(next_),
        static_cast<NSResponder*>(box_), static_cast<NSResponder*>(path_)}) {
    [Window() makeFirstResponder:responder];
    // The first has the number there that Escape has elsewhere.
    Press(@"x", 53);
    Press(@"X", 53);
    Press(@"a", 38);
    Press(@"\t", 23);
    EXPECT_EQ(toolkit_->messages, 0) << NameOf(responder);
  }
}

TEST_F(KeyTest, OnlyEscapeHasItsCode) {
  const auto code = [](NSString* letters, unsigned short x_code) {
    return [[NSEvent keyEventWithType:NSKeyDown
                             location:NSZeroPoint
                        modifierFlags:0
                            timestamp:0
                         windowNumber:0
                              context:nil
                           characters:letters
          charactersIgnoringModifiers:letters
                            isARepeat:NO
                              keyCode:x_code] keyCode];
  };
  EXPECT_EQ(code(@"\033", 9), 53);
  EXPECT_EQ(code(@"\033", 53), 53);
  EXPECT_NE(code(@"x", 53), 53);
  EXPECT_EQ(code(@"a", 38), 38) << "what is in nobody's way stays";
}

TEST_F(KeyTest, SpacePressesTheButtonThatHasTheKeyboardAndReturnDoesNot) {
  MakeButton(ButtonAction::kCancel);
  [Window() makeFirstResponder:Last<NSButton>()];
  for (NSString* const letter : {@"\r", @"\n", @"\003"}) Press(letter, 36);
  EXPECT_EQ(toolkit_->messages, 0);
  Press(@" ", 65);
  EXPECT_EQ(toolkit_->messages, 1);
}

// As with a line that was copied from a terminal, where its end comes along.
TEST_F(KeyTest, TheFieldIsOneLineWhateverIsPastedIntoIt) {
  for (NSString* const text :
       {@"/srv/templates\n", @"/srv/templates\r\n", @"/srv/\ntemplates", @"\r/srv/templates"}) {
    [Window() makeFirstResponder:path_];
    [Editor() selectAll:nil];
    Insert(text);
    EXPECT_EQ(toolkit_->GetText(field_), "/srv/templates");
  }
}

TEST_F(KeyTest, TheCaretStaysAfterWhatWasPasted) {
  [Window() makeFirstResponder:path_];
  [Editor() setSelectedRange:NSMakeRange(1, 0)];
  Insert(@"srv\r\n/\n");
  EXPECT_EQ(toolkit_->GetText(field_), "/srv/templates");
  EXPECT_EQ([Editor() selectedRange].location, 5u);
  EXPECT_EQ([Editor() selectedRange].length, 0u);
}

// --- Messages ---------------------------------------------------------------------------------

/// What an alert is when it is run.
struct Alert {
  NSInteger style = -1;
  NSSize icon = {0, 0};
  NSUInteger mask = 0;
  std::string delegate;
  std::string title;
  std::string text;
  std::vector<std::string> buttons;
  std::vector<std::string> keys;
};

class MessageTest : public AppKitToolkitTest {
 protected:
  void SetUp() override {
    AppKitToolkitTest::SetUp();
    SetUpWindow();
  }

  /// Shows `message`, whose alert then ends with `result`; what the wizard is told.
  int Run(const MessageBox& message, NSInteger result = 1000) {
    const Replaced run([NSAlert class], @selector(runModal), [&](NSAlert* alert) {
      Look(alert);
      return result;
    });
    return toolkit_->RunMessage(message);
  }

  void Look(NSAlert* alert) {
    NSWindow* const window = [alert window];
    seen_ = {};
    seen_.style = [alert alertStyle];
    if ([alert icon] != nil) seen_.icon = [[alert icon] size];
    seen_.mask = [window styleMask];
    seen_.delegate = NameOf([window delegate]);
    seen_.title = Text([window title]);
    seen_.text = Text([alert messageText]);
    for (NSUInteger i = 0; i < [[alert buttons] count]; ++i) {
      NSButton* const button = [[alert buttons] objectAtIndex:i];
      seen_.buttons.push_back(Text([button title]));
      seen_.keys.push_back(Text([button keyEquivalent]));
    }
  }

  static MessageBox Notice(MessageIcon icon = MessageIcon::kNone) {
    return {"Owner", "So it is.", icon, {{"OK", MessageButton::Key::kReturn}}};
  }
  static MessageBox Question() {
    return {"Owner",
            "Really?",
            MessageIcon::kQuestion,
            {{"Yes", MessageButton::Key::kReturn}, {"No", MessageButton::Key::kEscape}}};
  }

  Alert seen_;
};

TEST_F(MessageTest, AQuestionIsAWarningWithTheQuestionPicture) {
  Run(Question());
  EXPECT_EQ(seen_.style, 0);
  EXPECT_EQ(seen_.icon.width, 256);
  EXPECT_EQ(seen_.icon.height, 256);
}

TEST_F(MessageTest, AnErrorIsCriticalWithTheErrorPicture) {
  Run(Notice(MessageIcon::kError));
  EXPECT_EQ(seen_.style, 2);
  EXPECT_EQ(seen_.icon.width, 125);
  EXPECT_EQ(seen_.icon.height, 125);
}

TEST_F(MessageTest, ANoticeIsInformationalWithoutAPicture) {
  Run(Notice());
  EXPECT_EQ(seen_.style, 1);
  EXPECT_EQ(seen_.icon.width, 0);
}

TEST_F(MessageTest, AQuestionHasYesForReturnAndNoForEscape) {
  Run(Question());
  EXPECT_THAT(seen_.buttons, ElementsAre("Yes", "No"));
  EXPECT_THAT(seen_.keys, ElementsAre("\r", "\033"));
}

TEST_F(MessageTest, ANoticeHasOkForReturn) {
  Run(Notice());
  EXPECT_THAT(seen_.buttons, ElementsAre("OK"));
  EXPECT_THAT(seen_.keys, ElementsAre("\r"));
}

TEST_F(MessageTest, AMessageIsTitledAndClosableAndHasItsOwnersTitleAndItsText) {
  Run(Question());
  EXPECT_EQ(seen_.mask, 3u);
  EXPECT_EQ(seen_.delegate, "ExtNSWindowDelegate");
  EXPECT_EQ(seen_.title, "Owner");
  EXPECT_EQ(seen_.text, "Really?");
}

TEST_F(MessageTest, AMessageWithoutAnOwnerKeepsTheTitleOfItsKind) {
  MessageBox message = Notice();
  message.title.reset();
  Run(message);
  EXPECT_EQ(seen_.title, Text([[NSProcessInfo processInfo] processName]));
}

TEST_F(MessageTest, TheFirstButtonIsAThousandAndWhatIsNoButtonIsNone) {
  EXPECT_EQ(Run(Question(), 1000), 0);
  EXPECT_EQ(Run(Question(), 1001), 1);
  EXPECT_EQ(Run(Question(), 1002), -1);
  EXPECT_EQ(Run(Question(), 0), -1);
  EXPECT_EQ(Run(Question(), -1000), -1);
  EXPECT_EQ(Run(Notice(), 1000), 0);
  EXPECT_EQ(Run(Notice(), 1001), -1);
}

TEST_F(MessageTest, AMessageThatIsClosedEndsItsSheet) {
  std::vector<id> ended;
  const Replaced end([NSApplication class], @selector(endSheet:),
                     [&](id, id sheet) { ended.push_back(sheet); });
  NSObject* const delegate = [[[objc_getClass("ExtNSWindowDelegate") alloc] init] autorelease];
  [delegate performSelector:@selector(windowWillClose:)
                 withObject:[NSNotification notificationWithName:NSWindowWillCloseNotification
                                                          object:Window()]];
  EXPECT_THAT(ended, ElementsAre(static_cast<id>(Window())));
}

// --- The folder chooser -----------------------------------------------------------------------

class FolderChooserTest : public AppKitToolkitTest {
 protected:
  void SetUp() override {
    AppKitToolkitTest::SetUp();
    SetUpWindow();
  }

  /// Opens the chooser and ends it with `result`.
  void Choose(NSInteger result) {
    // Whatever the panel was set to before.
    NSOpenPanel* const before = [NSOpenPanel openPanel];
    [before setCanChooseFiles:YES];
    [before setCanChooseDirectories:NO];
    [before setCanCreateDirectories:YES];
    [before setAllowsMultipleSelection:YES];
    // GNUstep does not keep this one.
    const Replaced aliases([NSOpenPanel class], @selector(setResolvesAliases:),
                           [&](id, BOOL given) { settings_["resolves aliases"] = given; });
    const Replaced begin([NSOpenPanel class],
                         @selector(beginSheetModalForWindow:completionHandler:),
                         [&](NSOpenPanel* panel, NSWindow* window, void* block) {
                           EXPECT_EQ(window, Window());
                           Look(panel);
                           End(block, result);
                         });
    const Replaced name([NSOpenPanel class], @selector(filename),
                        [](id) { return @"/папка с <&>"; });
    toolkit_->ChooseFolder(view_, [this](const stdx::string& path) { chosen_.push_back(path); });
  }

  void Look(NSOpenPanel* panel) {
    EXPECT_TRUE([panel isKindOfClass:[NSOpenPanel class]]);
    settings_["files"] = [panel canChooseFiles];
    settings_["directories"] = [panel canChooseDirectories];
    settings_["creates directories"] = [panel canCreateDirectories];
    settings_["several"] = [panel allowsMultipleSelection];
  }

  static void End(void* handler, NSInteger result) {
    // Laid out as every block is.
    struct Block {
      void* isa;
      int flags;
      int reserved;
      void (*invoke)(void* block, NSInteger result);
    };
    static_cast<Block*>(handler)->invoke(handler, result);
  }

  std::map<std::string, bool> settings_;
  std::vector<stdx::string> chosen_;
};

TEST_F(FolderChooserTest, TakesOneDirectoryAndMakesNone) {
  Choose(0);
  const std::map<std::string, bool> expected = {{"resolves aliases", true},
                                                {"files", false},
                                                {"directories", true},
                                                {"creates directories", false},
                                                {"several", false}};
  EXPECT_EQ(settings_, expected);
}

TEST_F(FolderChooserTest, HandsOverThePathWhenTheUserConfirmsAndOnlyThen) {
  Choose(1);
  EXPECT_THAT(chosen_, ElementsAre(stdx::string("/папка с <&>")));
  for (const NSInteger other : {0, 2, -1}) {
    chosen_.clear();
    Choose(other);
    EXPECT_THAT(chosen_, IsEmpty()) << other;
  }
}

// --- The menu bar and quitting ----------------------------------------------------------------

std::vector<std::string> Entries(NSMenu* menu) {
  std::vector<std::string> entries;
  for (NSInteger i = 0; i < [menu numberOfItems]; ++i) {
    const id entry = [menu itemAtIndex:i];
    entries.push_back(Text([entry title]) + " " + Text([entry keyEquivalent]) + " " +
                      ([entry action] != nullptr ? sel_getName([entry action]) : ""));
  }
  return entries;
}

TEST_F(AppKitToolkitTest, TheMenuBarGivesTheKeysOfEditingTheirMeaning) {
  SetUpWindow();
  NSMenu* const bar = NewMainMenu();
  ASSERT_EQ([bar numberOfItems], 2);
  EXPECT_THAT(Entries([[bar itemAtIndex:0] submenu]),
              ElementsAre("Hide h hide:", "Quit q terminate:"));
  EXPECT_THAT(
      Entries([[bar itemAtIndex:1] submenu]),
      ElementsAre("Cut x cut:", "Copy c copy:", "Paste v paste:", "Select All a selectAll:"));
  [bar release];
}

TEST_F(AppKitToolkitTest, AQuitAsksTheController) {
  SetUpWindow();
  EXPECT_EQ(NameOf([NSApp delegate]), "QuarnQuitDelegate");
  EXPECT_TRUE([[NSApp delegate] isKindOfClass:[ExtNSApplicationDelegate class]]);
  EXPECT_EQ([[NSApp delegate] applicationShouldTerminate:NSApp], NSTerminateNow);
}

TEST_F(AppKitToolkitTest, NobodyAsksAControllerThatIsGone) {
  SetUpWindow();
  controller_.reset();
  toolkit_.reset();
  EXPECT_EQ([NSApp delegate], nil);
}

// --- The event pump, and where things are ------------------------------------------------------

class PumpEventTest : public AppKitToolkitTest {
 protected:
  /// One turn in which the application fetches `event`; what happens in it, in order.
  std::vector<std::string> Turn(NSEvent* event) {
    std::vector<std::string> calls;
    const Replaced next([NSApplication class],
                        @selector(nextEventMatchingMask:untilDate:inMode:dequeue:),
                        [&](id, NSUInteger mask, NSDate* until, NSString* mode, BOOL dequeue) {
                          EXPECT_EQ(mask, ~NSUInteger{0}) << "every type";
                          EXPECT_EQ(until, nil) << "does not wait";
                          EXPECT_EQ(Text(mode), Text(NSDefaultRunLoopMode));
                          EXPECT_TRUE(dequeue);
                          calls.emplace_back("fetch");
                          return event;
                        });
    const Replaced send([NSApplication class], @selector(sendEvent:), [&](id, NSEvent* sent) {
      EXPECT_EQ(sent, event);
      calls.emplace_back("send");
    });
    toolkit_->PumpEvent([&](Point at) {
      calls.push_back("look at " + std::to_string(at.x) + ", " + std::to_string(at.y));
    });
    return calls;
  }
};

TEST_F(PumpEventTest, FetchesAnyEventWithoutWaitingTellsWhereItLiesAndThenSendsIt) {
  SetUpWindow();
  NSEvent* const event = [NSEvent mouseEventWithType:NSMouseMoved
                                            location:NSMakePoint(450.5, 25)
                                       modifierFlags:0
                                           timestamp:0
                                        windowNumber:[Window() windowNumber]
                                             context:nil
                                         eventNumber:0
                                          clickCount:0
                                            pressure:0];
  EXPECT_THAT(Turn(event), ElementsAre("fetch", "look at 450.500000, 25.000000", "send"));
}

TEST_F(PumpEventTest, AnEventThatIsMissingIsSentLikeAnyOther) {
  SetUpWindow();
  EXPECT_THAT(Turn(nil), ElementsAre("fetch", "send"));
}

TEST_F(AppKitToolkitTest, APointOnTheScreenIsConvertedByTheWindowsPosition) {
  SetUpWindow();
  [Window() setFrameOrigin:NSMakePoint(100, 50)];
  const NSPoint expected = [Window() convertScreenToBase:NSMakePoint(550.5, 75)];
  const Point at = toolkit_->ScreenToWindow(window_, {550.5, 75});
  EXPECT_EQ(at.x, expected.x);
  EXPECT_EQ(at.y, expected.y);
  EXPECT_LE(at.x, 450.5);
}

TEST_F(AppKitToolkitTest, APointInTheWindowIsConvertedToTheControl) {
  SetUpWindow();
  ToolkitControl* const button = MakeButton(ButtonAction::kCancel);
  EXPECT_EQ(toolkit_->Bounds(button), (Frame{0, 0, 80, 30}));
  // The window's own origin is at the bottom.
  const Point middle = toolkit_->WindowToControl(button, {450, 360 - 335});
  EXPECT_EQ(middle.x, 40);
  EXPECT_EQ(middle.y, 15);
}

}  // namespace
}  // namespace quarn::testing
