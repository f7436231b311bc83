// The message boxes and the directory chooser.
#include "wizard/mac/classes.h"
#include "wizard/mac/parts.h"

namespace quarn {
namespace {

void SetIcon(NSAlert* alert, const Picture& picture, NSAlertStyle style) {
  NSImage* const image = NewImage(picture);
  [alert setIcon:image];
  [image release];
  [alert setAlertStyle:style];
}

}  // namespace

int AppKitToolkit::RunMessage(const MessageBox& message) {
  const Pool pool;
  NSAlert* const alert = [[NSAlert alloc] init];
  [[alert window] setStyleMask:kTitledClosable];
  ExtNSWindowDelegate* const delegate = [[ExtNSWindowDelegate alloc] init];
  [[alert window] setDelegate:delegate];
  switch (message.icon) {
    case MessageIcon::kQuestion:
      SetIcon(alert, QuestionPicture(), kWarning);
      break;
    case MessageIcon::kError:
      SetIcon(alert, ErrorPicture(), kCritical);
      break;
    case MessageIcon::kNone:
      [alert setAlertStyle:kInformational];
      break;
  }
  NSUInteger count = 0;
  for (const MessageButton& button : message.buttons) {
    [alert addButtonWithTitle:ToNSString(button.title)];
    [[[alert buttons] objectAtIndex:count++]
        setKeyEquivalent:button.key == MessageButton::Key::kReturn ? @"\r" : @"\033"];
  }
  if (message.title) [[alert window] setTitle:ToNSString(*message.title)];
  [alert setMessageText:ToNSString(message.text)];
  const NSInteger pressed = [alert runModal] - kFirstButton;
  [[alert window] setDelegate:nil];
  [delegate release];
  [alert release];
  return pressed >= 0 && pressed < static_cast<NSInteger>(count) ? static_cast<int>(pressed) : -1;
}

void AppKitToolkit::ChooseFolder(ToolkitView* view,
                                 std::function<void(const stdx::string& path)> chosen) {
  NSOpenPanel* const panel = [[NSOpenPanel openPanel] retain];
  [panel setResolvesAliases:YES];
  [panel setCanChooseFiles:NO];
  [panel setCanChooseDirectories:YES];
  [panel setCanCreateDirectories:NO];
  [panel setAllowsMultipleSelection:NO];
  dialect::BeginSheet(panel, [static_cast<View*>(view)->object window],
                      [=](NSOpenPanel* ended, NSInteger result) {
                        if (result == kConfirmed) chosen(FromNSString([ended filename]));
                      });
  [panel release];
}

}  // namespace quarn
