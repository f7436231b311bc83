"""The ways to leave the wizard before its end."""

import time

from desktop import wait_for
from scenarios.registry import scenario
from world import CANCEL, CHECK_BOX, NEXT


def _cancel(world, ask):
    """`ask` brings the question up: No goes back, Yes ends the program with nothing installed."""
    world.pack_example()
    wizard = world.start()
    window = wizard.main_window()
    for answer in ("Escape", "close", "Return"):
        ask(wizard, window)
        message = wizard.message()
        world.check_equal(message.title, window.title, "title of the question")
        if answer == "close":
            message.ask_to_close()
        else:
            message.key(answer)
        wizard.wait_closed(message, "the question")
        if answer != "Return":
            world.check(wizard.is_running and window.exists(), f"{answer} keeps the wizard open")
            wait_for(window.is_active, "the wizard to have the keyboard again")
    wizard.finish()
    world.check_equal(world.installed(), set(), "installed files")
    world.check_equal(world.recorded, [], "recorded directories")


@scenario
def cancel_asks_and_only_yes_ends_it(world):
    _cancel(world, lambda wizard, window: wizard.press(CANCEL))


@scenario
def escape_asks_and_only_yes_ends_it(world):
    _cancel(world, lambda wizard, window: window.key("Escape"))


@scenario
def escape_asks_from_every_control(world):
    world.pack_example()
    wizard = world.start()
    window = wizard.main_window()

    def asks(where):
        window.key("Escape")
        question = wizard.message()
        question.key("Escape")
        wizard.wait_closed(question, f"the question from {where}")
        world.check(window.exists(), f"No keeps the wizard open, asked from {where}")

    for control in ("Next", "Cancel"):
        asks(f"{control} of the welcome page")
        window.key("Tab")
    wizard.press(NEXT)
    wizard.fill_field(f"{world.root}/chosen")
    for control in ("the path", "Browse", "Back", "Next", "Cancel"):
        asks(control)
        window.key("Tab")
    window.key("End")
    window.type("/further")  # what the field held is still there
    wizard.press(NEXT)
    wizard.wait_recorded()
    world.check_equal(world.recorded, [f"{world.root}/chosen/further"], "recorded directories")
    wizard.press(CHECK_BOX)
    asks("the check box")
    asks("the check box again")
    window.key("Escape")
    wizard.message().key("Return")
    wizard.finish()


@scenario
def letters_ask_nothing(world):
    # Among them the key whose number is that of Escape elsewhere.
    world.pack_example()
    wizard = world.start()
    window = wizard.main_window()
    letters = "abcdefghijklmnopqrstuvwxyzXE0123456789"
    window.type(letters)
    wizard.press(NEXT)
    window.type(letters)
    time.sleep(0.5)
    world.check_equal(world.desktop.windows(), [window], "windows")
    window.ask_to_close()
    wizard.finish()


@scenario
def the_close_button_ends_it_without_a_question(world):
    world.pack_example()
    wizard = world.start()
    wizard.main_window().ask_to_close()
    wizard.finish()
    world.check_equal(world.installed(), set(), "installed files")


def _start_slow(world):
    count = world.pack_slow()
    wizard = world.start()
    wizard.main_window()
    wizard.press(NEXT)
    wizard.press(NEXT)
    wait_for(world.installed, "the first file")
    return wizard, count


@scenario
def cancel_while_installing_lets_the_pass_complete(world):
    wizard, count = _start_slow(world)
    wizard.press(CANCEL)
    wizard.wait_recorded()
    world.check_equal(len(world.installed()), count, "number of installed files")
    wizard.press(NEXT)
    wizard.finish()


@scenario
def a_click_on_cancel_of_a_window_in_the_screens_corner_ends_on_the_error_page(world):
    # The wizard tests the pointer off by the window's position on the screen, which is the origin only here.
    count = world.pack_slow()
    wizard = world.start()
    window = wizard.main_window()
    wizard.press(NEXT)
    window.move(*world.bridge.corner)
    wizard.press(NEXT)
    wait_for(world.installed, "the first file")
    wizard.press(CANCEL)
    message = wizard.message()
    world.check(len(world.installed()) < count, "the message comes before the last file")
    message.key("Return")
    wizard.wait_closed(message, "the message")
    wizard.press(CANCEL)  # means nothing here
    wizard.press(NEXT)
    wizard.finish()
    world.check_equal(len(world.installed()), count, "number of installed files")
    world.check_equal(world.recorded, [], "recorded directories")


@scenario
def pointing_at_cancel_of_a_centred_window_means_nothing(world):
    wizard, count = _start_slow(world)
    for step in range(20):
        wizard.window.point_at(CANCEL[0] + step, CANCEL[1])
    wizard.wait_recorded()
    world.check_equal(len(world.installed()), count, "number of installed files")
    wizard.press(NEXT)
    wizard.finish()


@scenario
def escape_while_installing_asks_and_yes_closes_while_the_pass_completes(world):
    wizard, count = _start_slow(world)
    wizard.window.key("Escape")
    wizard.message().key("Return")
    wizard.wait_closed(wizard.window, "the wizard's window")
    world.check(len(world.installed()) < count, "the window closes before the last file")
    wizard.finish()
    world.check_equal(len(world.installed()), count, "number of installed files")


@scenario
def the_close_button_while_installing_lets_the_pass_complete(world):
    wizard, count = _start_slow(world)
    wizard.window.ask_to_close()
    wizard.wait_closed(wizard.window, "the wizard's window")
    wizard.finish()
    world.check_equal(len(world.installed()), count, "number of installed files")
