"""Runs without questions, and machines without a display."""

import os

from scenarios.registry import needs, scenario


@scenario
def silent_mode_installs_and_ends(world):
    count = world.pack_slow()  # long enough to be seen
    wizard = world.start("-S")
    window = wizard.main_window()
    world.check_equal(window.title, world.text("IDR_MAINFRAME"), "title of the window")
    wizard.finish()
    world.check_equal(len(world.installed()), count, "number of installed files")
    world.check_equal(world.recorded, [str(world.default_target)], "recorded directories")


@scenario
def escape_in_a_silent_run_asks_and_yes_closes_while_the_pass_completes(world):
    count = world.pack_slow()
    wizard = world.start("-S")
    wizard.main_window().key("Escape")
    question = wizard.message()
    question.key("Return")
    wizard.wait_closed(wizard.window, "the wizard's window")
    world.check(len(world.installed()) < count, "the window closes before the last file")
    wizard.finish()
    world.check_equal(len(world.installed()), count, "number of installed files")


@scenario
@needs("no display")
def silent_mode_needs_no_display(world):
    files = world.pack_example()
    for display in (None, ":77"):
        os.path.exists(world.launcher_file) and os.remove(world.launcher_file)
        wizard = world.start("/silently", DISPLAY=display)
        wizard.finish()
        world.check_equal(wizard.output, "", "output")
        world.check_equal(world.installed(), files, "installed files")
        world.check_equal(world.recorded, [str(world.default_target)], "recorded directories")


@scenario
@needs("no display")
def a_silent_failure_goes_to_standard_error(world):
    world.pack_example()
    # Every pass fails there, so that it does not matter when the wizard looks.
    home = world.read_only_directory()
    # Whoever looks for a font now is told that none can be remembered.
    fonts = world.root / "fonts.conf"
    fonts.write_text("<fontconfig><dir>/usr/share/fonts</dir><cachedir>/proc/nowhere</cachedir></fontconfig>")
    wizard = world.start("-S", language="de", DISPLAY=None, HOME=home, FONTCONFIG_FILE=str(fonts))
    wizard.finish()
    world.check_equal(wizard.output, world.text("IDS_INSTALL_ERROR", "de") + "\n", "message")
    world.check_equal(os.listdir(home), [], "files in the home directory")


@scenario
def without_a_display_there_is_one_clear_line(world):
    world.pack_example()
    for display in (None, "", ":77", "no-such-host:0"):
        wizard = world.start(DISPLAY=display)
        wizard.finish()
        lines = wizard.output.splitlines()
        world.check_equal(len(lines), 1, f"lines in {wizard.output!r}")
        world.check("display" in lines[0] and "-S" in lines[0], f"a clear line: {lines[0]!r}")
        world.check_equal(world.installed(), set(), "installed files")
