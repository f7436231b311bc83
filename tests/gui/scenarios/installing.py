"""An installation from the first page to the last, and what Finish does."""

import os
import time

from desktop import wait_for
from scenarios.registry import scenario
from world import BACK, CHECK_BOX, KIT_TIME, NEXT


# --- Installing -----------------------------------------------------------------------------------


@scenario
def clicking_through_installs_everything(world):
    files = world.pack_example()
    wizard = world.start()
    window = wizard.main_window()
    world.check_equal(window.size, (500, 360), "size of the window")
    wizard.press(NEXT)
    wizard.install_from_directory_page()
    world.check_equal(world.installed(), files, "installed files")
    world.check_equal(int((world.default_target / "crm/base.cf").stat().st_mtime), KIT_TIME, "time of a file")
    world.check_equal(world.recorded, [str(world.default_target)], "recorded directories")
    world.check_equal([path for path in os.listdir(world.temp) if path.startswith("kstage")], [], "staging directories")
    world.check(wizard.is_running, "the success page waits for Finish")
    wizard.press(NEXT)
    wizard.finish()


@scenario
def keys_alone_install_everything(world):
    files = world.pack_example()
    wizard = world.start()
    window = wizard.main_window()
    window.key("space")  # Next has the focus
    window.key("Tab", "Tab")  # Cancel, path
    window.key("End")
    window.type("by-keys")
    window.key("Tab", "Tab", "Tab", "space")  # browse, Back, Next
    wizard.wait_recorded()
    target = f"{world.default_target}/by-keys"
    world.check_equal(world.recorded, [target], "recorded directories")
    world.check_equal(world.installed(target), files, "installed files")
    window.key("space")  # Finish
    wizard.finish()


@scenario
def back_and_next_keep_the_prepared_directory(world):
    files = world.pack_example()
    wizard = world.start()
    wizard.main_window()
    wizard.press(BACK)  # means nothing here
    wizard.press(NEXT)
    wizard.fill_field("/tmp/elsewhere")
    wizard.press(BACK)
    wizard.press(NEXT)
    wizard.install_from_directory_page()
    world.check_equal(world.installed(), files, "installed files")
    world.check(not os.path.exists("/tmp/elsewhere"), "nothing was made in the directory on which Back was pressed")
    wizard.press(NEXT)
    wizard.finish()


@scenario
def an_empty_directory_is_asked_for_again(world):
    files = world.pack_example()
    target = world.root / "templates with spaces"
    wizard = world.start()
    window = wizard.main_window()
    wizard.press(NEXT)
    wizard.fill_field("")
    wizard.press(NEXT)
    message = wizard.message()
    world.check_equal(message.title, window.title, "title of the message")
    message.key("Return")
    wizard.wait_closed(message, "the message")
    wizard.fill_field(f"{target}/")
    wizard.install_from_directory_page()
    world.check_equal(world.installed(target), files, "installed files")
    world.check_equal(world.recorded, [str(target)], "recorded directories")
    wizard.press(NEXT)
    wizard.finish()


@scenario
def a_message_is_as_high_as_its_text(world):
    world.pack_example()
    heights = []
    for language in ("en", "de"):  # one line, two lines
        wizard = world.start(language=language)
        window = wizard.main_window()
        wizard.press(NEXT)
        wizard.fill_field("")
        wizard.press(NEXT)
        message = wizard.message()
        heights.append(message.size[1])
        message.key("Return")
        wizard.wait_closed(message, "the message")
        window.ask_to_close()
        wizard.finish()
    world.check(heights[0] + 10 <= heights[1], f"the second is higher: {heights}")


@scenario
def the_kit_of_the_current_directory_is_taken_with_usecwd(world):
    files = world.pack_example()
    os.rename(world.kit, world.root / "quarn.tpk")
    wizard = world.start("usecwd")
    wizard.main_window()
    wizard.press(NEXT)
    wizard.install_from_directory_page()
    world.check_equal(world.installed(), files, "installed files")
    wizard.press(NEXT)
    wizard.finish()


@scenario
def the_window_has_the_programs_icon(world):
    world.pack_example()
    wizard = world.start()
    window = wizard.main_window()

    def mostly_blue():
        opaque = [pixel for pixel in window.icon() if pixel[3] == 255]
        return opaque and sum(blue > red for blue, _, red, _ in opaque) > len(opaque) / 2

    wait_for(mostly_blue, "the icon")
    window.ask_to_close()
    wizard.finish()


@scenario
def return_means_nothing_in_the_window(world):
    world.pack_example()
    record = world.fake("open")
    # A desktop where Return presses the button that has the keyboard.
    wizard = world.start(QT_QPA_PLATFORMTHEME="gnome")
    window = wizard.main_window()
    window.key("Return", "Return", "KP_Enter", "Return")
    time.sleep(0.5)
    world.check(wizard.is_running, "the wizard runs on")
    world.check_equal(world.installed(), set(), "installed files")
    wizard.press(NEXT)
    wizard.install_from_directory_page()
    wizard.press(CHECK_BOX)
    wizard.press(CHECK_BOX)  # on again
    window.key("Return", "KP_Enter", "Return")
    world.check(wizard.is_running, "the success page waits for Finish")
    wizard.press(NEXT)
    wizard.finish()
    world.check(record.exists(), "the description is opened")


# --- Finishing ------------------------------------------------------------------------------------


def _install_description(world):
    world.pack_example()
    record = world.fake("open")
    wizard = world.start()
    wizard.main_window()
    wizard.press(NEXT)
    wizard.install_from_directory_page()
    return wizard, record


@scenario
def finish_opens_the_description(world):
    wizard, record = _install_description(world)
    wizard.press(NEXT)
    wizard.finish()
    world.check_equal(record.read_text().splitlines(), [f"{world.default_target}/crm/en/readme.txt"], "opened")


@scenario
def finish_opens_nothing_when_the_box_is_cleared(world):
    wizard, record = _install_description(world)
    wizard.press(CHECK_BOX)
    wizard.press(NEXT)
    wizard.finish()
    world.check(not record.exists(), "nothing is opened")
