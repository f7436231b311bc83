"""What goes wrong, and how the user learns of it."""

import os
import time

from scenarios.registry import scenario
from world import CANCEL, NEXT


def _refused(world, text_id):
    """The wizard tells why it does not start, in a message that Escape does not answer."""
    wizard = world.start()
    message = wizard.message()
    world.check_equal(message.title, world.text("IDR_MAINFRAME"), "title of the message")
    message.key("Escape")
    time.sleep(0.5)
    world.check(message.exists(), "Escape does not press OK")
    message.key("Return")
    wizard.finish()
    world.check_equal(world.recorded, [], "recorded directories")
    if "no display" in world.bridge.offers:
        # The same without a screen shows which message it was.
        wizard = world.start("-S", DISPLAY=None)
        wizard.finish()
        world.check_equal(wizard.output, world.text(text_id) + "\n", "message")


@scenario
def a_missing_kit_is_told(world):
    _refused(world, "IDS_ERROR_NOSOURCE")


@scenario
def a_damaged_kit_is_told(world):
    world.pack_example()
    world.kit.write_bytes(b"\xff" + world.kit.read_bytes()[1:])
    _refused(world, "IDS_ERROR_DAMAGEDSOURCE")


@scenario
def a_kit_too_large_for_the_temporary_directory_is_told(world):
    world.pack({"a/noise.bin": os.urandom(200_000)})
    world.shrink_temp(400_000)
    _refused(world, "IDS_ERROR_NOSPACE")


@scenario
def a_failed_installation_ends_on_the_error_page(world):
    world.pack_example()
    wizard = world.start()
    window = wizard.main_window()
    wizard.press(NEXT)
    wizard.fill_field(f"{world.read_only_directory()}/templates")
    wizard.press(NEXT)
    message = wizard.message()
    world.check_equal(message.title, window.title, "title of the message")
    message.key("Escape")
    time.sleep(0.5)
    world.check(message.exists(), "Escape does not press OK")
    message.key("Return")
    wizard.wait_closed(message, "the message")
    wizard.press(CANCEL)  # means nothing here
    window.key("Escape")  # asks here too
    question = wizard.message()
    question.key("Escape")
    wizard.wait_closed(question, "the question")
    wizard.press(NEXT)
    wizard.finish()
    world.check_equal(world.recorded, [], "recorded directories")
    world.check(not world.temp.exists(), "the rollback takes the temporary directory with it")
