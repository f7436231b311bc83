// The menu bar. Its titles are the same in every language, like those of the buttons of a message.
#include "wizard/mac/parts.h"

namespace quarn {
namespace {

NSMenu* AddMenu(NSMenu* bar, NSString* title) {
  NSMenu* const menu = [[NSMenu alloc] initWithTitle:title];
  NSMenuItem* const entry = [[NSMenuItem alloc] initWithTitle:title
                                                       action:nullptr
                                                keyEquivalent:@""];
  [bar addItem:entry];
  [bar setSubmenu:menu forItem:entry];
  [entry release];
  [menu release];
  return menu;
}

}  // namespace

NSMenu* NewMainMenu() {
  const Pool pool;
  NSMenu* const bar = [[NSMenu alloc] initWithTitle:@"Setup"];
  // The first one shows as the application's name.
  NSMenu* const application = AddMenu(bar, @"Setup");
  [application addItemWithTitle:@"Hide" action:@selector(hide:) keyEquivalent:@"h"];
  [application addItemWithTitle:@"Quit" action:@selector(terminate:) keyEquivalent:@"q"];
  // Whoever has the keyboard takes these: the editor of the path field.
  NSMenu* const edit = AddMenu(bar, @"Edit");
  [edit addItemWithTitle:@"Cut" action:@selector(cut:) keyEquivalent:@"x"];
  [edit addItemWithTitle:@"Copy" action:@selector(copy:) keyEquivalent:@"c"];
  [edit addItemWithTitle:@"Paste" action:@selector(paste:) keyEquivalent:@"v"];
  [edit addItemWithTitle:@"Select All" action:@selector(selectAll:) keyEquivalent:@"a"];
  return bar;
}

}  // namespace quarn
