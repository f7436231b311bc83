"""What users do with the wizard. Written once for every desktop it runs on; see bridges.py."""

import os
import re
import shutil
import socket
import subprocess
import time

from desktop import wait_for
from world import BACK, BROWSE, CANCEL, CHECK_BOX, KIT_TIME, NEXT, Missing

SCENARIOS = {}
# What a scenario needs of the desktop that the wizard runs on; see bridges.py.
NEEDS = {}


def scenario(function):
    SCENARIOS[function.__name__] = function
    return function


def needs(what):
    def note(function):
        NEEDS[function.__name__] = what
        return function
    return note


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
    world.check(not os.path.exists("/tmp/elsewhere"), "nothing stands where Back was pressed")
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


# --- Cancelling and closing -----------------------------------------------------------------------


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

    for place in ("Next", "Cancel"):
        asks(f"{place} of the welcome page")
        window.key("Tab")
    wizard.press(NEXT)
    wizard.fill_field(f"{world.root}/chosen")
    for place in ("the path", "Browse", "Back", "Next", "Cancel"):
        asks(place)
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
    # The wizard looks for the pointer off by the window's place on the screen: only there both agree.
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


# --- Failing --------------------------------------------------------------------------------------


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


# --- The folder chooser ---------------------------------------------------------------------------


def _open_chooser(world):
    world.pack_example()
    wizard = world.start()
    wizard.main_window()
    wizard.press(NEXT)
    wizard.press(BROWSE)
    return wizard, world.bridge.chooser_of(wizard)


@scenario
def a_chosen_folder_goes_into_the_field(world):
    target = world.root / "folders/chosen folder"  # the only one there
    target.mkdir(parents=True)
    wizard, chooser = _open_chooser(world)
    world.bridge.choose(chooser, target)
    wizard.wait_closed(chooser, "the folder chooser")
    wizard.install_from_directory_page()
    world.check_equal(world.recorded, [str(target)], "recorded directories")
    wizard.press(NEXT)
    wizard.finish()


@scenario
def a_dismissed_chooser_leaves_the_field(world):
    wizard, chooser = _open_chooser(world)
    wizard.window.click(*CANCEL)  # the chooser is a sheet: the window below does not answer
    world.bridge.dismiss(chooser)
    wizard.wait_closed(chooser, "the folder chooser")
    wizard.install_from_directory_page()
    world.check_equal(world.recorded, [str(world.default_target)], "recorded directories")
    wizard.press(NEXT)
    wizard.finish()


# --- The bundle -----------------------------------------------------------------------------------


@scenario
@needs("bundle")
def a_bundle_finds_the_kit_beside_it(world):
    files = world.pack_example()
    world.use_bundle()
    wizard = world.start()
    window = wizard.main_window()
    world.check_equal(window.title, world.text("IDR_MAINFRAME"), "title of the window")
    wizard.press(NEXT)
    wizard.install_from_directory_page()
    world.check_equal(world.installed(), files, "installed files")
    wizard.press(NEXT)
    wizard.finish()


# --- Screens --------------------------------------------------------------------------------------


@scenario
@needs("scaling")
def a_dense_screen_gets_a_larger_window(world):
    files = world.pack_example()
    wizard = world.start(QT_SCALE_FACTOR="1.5")
    window = wizard.main_window()
    world.check_equal(window.size, (750, 540), "size of the window")
    next_ = [round(1.5 * place) for place in NEXT]
    wizard.press(next_)
    wizard.press(next_)
    wizard.wait_recorded()
    world.check_equal(world.installed(), files, "installed files")
    wizard.press(next_)
    wizard.finish()


@scenario
@needs("wayland")
def a_wayland_desktop_shows_the_window_and_installs(world):
    count = world.pack_slow()
    world.start_wayland()
    # What passes between the program and the desktop.
    wizard = world.start("-S", DISPLAY=None, WAYLAND_DEBUG="client")
    wizard.finish()
    world.check_equal(len(world.installed()), count, "number of installed files")
    title = world.text("IDR_MAINFRAME")
    for request in (f'.set_title("{title}")', '.set_app_id("quarn-setup")', ".set_min_size(500, 360)",
                    ".set_max_size(500, 360)", ".attach("):
        world.check(request in wizard.output, f"the program asks for {request}")


@scenario
@needs("wayland")
def on_a_wayland_desktop_pointing_at_cancel_means_nothing(world):
    # Nobody but the desktop knows the window's place there; the wizard takes it for the one that it asked for.
    count = world.pack_slow()
    desktop = world.start_wayland((640, 500))
    wizard = world.start(DISPLAY=None, WAYLAND_DEBUG="client")
    middle = (320, 250)  # wherever the window stands, it stands there too

    def pointer():
        """Where the program is told that the pointer is."""
        desktop.point_at(*middle)
        desktop.point_at(middle[0] + 1, middle[1])
        return re.findall(r"wl_pointer@\d+\.motion\(\d+, ([\d.]+), ([\d.]+)\)", wizard.output)

    x, y = (float(each) for each in wait_for(pointer, "the pointer in the window")[-1])
    # The program draws the frame itself.
    frame_left, frame_top = 3, 30

    def at(place):
        return round(middle[0] + 1 - x + frame_left + place[0]), round(middle[1] - y + frame_top + place[1])

    desktop.click(*at(NEXT))
    desktop.click(*at(NEXT))
    wait_for(world.installed, "the first file")
    for step in range(20):
        desktop.point_at(*at((CANCEL[0] + step, CANCEL[1])))
    desktop.click(*at(CANCEL))
    wizard.wait_recorded()
    world.check_equal(len(world.installed()), count, "number of installed files")
    desktop.click(*at(NEXT))
    wait_for(lambda: not wizard.is_running, "the program to end")


# --- Silent mode, and no display ------------------------------------------------------------------


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


# --- Languages ------------------------------------------------------------------------------------


@scenario
def the_title_is_in_every_language(world):
    world.pack_example()
    for language in world.languages:
        wizard = world.start(language=language)
        window = wizard.main_window()
        expected = world.text("IDR_MAINFRAME", language)
        world.check_equal(window.title, expected, f"title in {language}")
        window.ask_to_close()
        wizard.finish()


@scenario
def russian_needs_no_installed_locale(world):
    world.pack_example()
    title = world.text("IDR_MAINFRAME", "ru")
    for language, variables in (
        ("ru", {"LANG": None}),
        ("ru", {"LANG": "xx_XX.UTF-8"}),
        ("ru", {"LANG": "C", "LC_ALL": "POSIX"}),
        (None, {"LANG": "ru_RU.UTF-8"}),
        (None, {"LANG": "C.UTF-8", "LC_ALL": "ru_RU.KOI8-R"}),
    ):
        wizard = world.start(language=language, **variables)
        window = wizard.main_window()
        world.check_equal(window.title, title, f"title with {language}, {variables}")
        window.ask_to_close()
        wizard.finish()


@scenario
def a_directory_in_any_script_is_installed_into(world):
    files = world.pack({"каталог/файл.txt": "да".encode()}) or {"каталог/файл.txt"}
    home = world.root / "дом"
    home.mkdir()
    wizard = world.start(language="ru", LANG="ru_RU.UTF-8", HOME=str(home))
    wizard.main_window()
    wizard.press(NEXT)
    wizard.press(NEXT)
    config = home / ".Orbex/qlaunch/qlaunch.cfg"
    wait_for(config.exists, "the installation to be recorded")
    wizard.press(NEXT)
    wizard.finish()
    target = home / ".quarn/Orbex/quarn/tmplts"
    world.check_equal(world.installed(target), files, "installed files")
    world.check_equal(config.read_text(), f"ConfigurationTemplatesLocation={target}\n", "launcher file")


@scenario
def a_directory_in_the_users_eight_bit_encoding_is_shown_and_installed_into(world):
    world.pack({"base.cf": b"base"}, name="Дом", provider="Фирма")
    locale = world.root / "locales/ru.KOI8-R"
    locale.parent.mkdir()
    if not shutil.which("localedef") or subprocess.run(
            ["localedef", "-c", "-i", "C", "-f", "KOI8-R", str(locale)], stderr=subprocess.DEVNULL).returncode != 0:
        raise Missing("no sources of locales on this system")
    target = os.fsencode(world.root) + "/дом".encode("koi8-r")
    os.mkdir(target)
    recorded = b"ConfigurationTemplatesLocation=" + target + b"\n"
    world.launcher_file.parent.mkdir(parents=True)
    world.launcher_file.write_bytes(recorded)
    wizard = world.start(language="ru", LANG="ru.KOI8-R", LOCPATH=str(locale.parent))
    world.check_equal(wizard.main_window().title, world.text("IDR_MAINFRAME", "ru"), "title")
    wizard.press(NEXT)
    # The directory goes through the field as it is.
    wizard.press(NEXT)
    wait_for(lambda: os.path.exists(target + b"/base.cf"), "the file to be installed")
    wizard.press(NEXT)
    wizard.finish()
    world.check_equal(world.launcher_file.read_bytes(), recorded, "launcher file")


@scenario
def a_typed_directory_in_any_script_is_installed_into(world):
    files = world.pack_example()
    names = ("Каталог", "תבניות", "模板")
    for number, variables in enumerate((
        {},
        {"LANG": "xx_XX.UTF-8"},
        {"LANG": None},
        {"GTK_THEME": "Adwaita:dark", "QT_STYLE_OVERRIDE": "Adwaita-Dark"},
    )):
        target = world.root / f"typed{number}" / "-".join(names)
        wizard = world.start(language="en", **variables)
        wizard.main_window()
        wizard.press(NEXT)
        wizard.fill_field(str(target))
        wizard.press(NEXT)
        wait_for(lambda: str(target) in world.recorded, f"{target} on record, not {world.recorded}")
        world.check_equal(world.installed(target), files, f"installed files with {variables}")
        wizard.press(NEXT)
        wizard.finish()


# --- Those who do not see the window --------------------------------------------------------------


@scenario
def the_window_shows_although_the_session_bus_does_not_answer(world):
    world.pack_example()
    with socket.socket(socket.AF_UNIX) as bus:
        address = str(world.root / "bus")
        bus.bind(address)
        bus.listen()
        world.environment["DBUS_SESSION_BUS_ADDRESS"] = f"unix:path={address}"
        wizard = world.start()
        wizard.main_window()
    # The connection is broken now, and the wizard goes on without.
    wizard.press(NEXT)
    wizard.install_from_directory_page()
    wizard.press(NEXT)
    wizard.finish()


@scenario
@needs("screen reader")
def a_screen_reader_finds_a_role_and_a_name_for_every_control(world):
    world.pack_example()
    reader = world.start_screen_reader()
    wizard = world.start()
    window = wizard.main_window()
    title = window.title

    def showing():
        """Everything that shows, without what is no more than a line."""
        return [(role, name) for role, name, is_showing in reader.objects() if is_showing and role != "separator"]

    frame = [("frame", title), ("panel", title)]

    def buttons(*names):
        return [("push button", name) for name in names]

    wait_for(reader.objects, "the wizard on the accessibility bus")
    back, next_, cancel = (world.text(f"IDS_WIZARD_{name}") for name in ("BACK", "NEXT", "CANCEL"))
    text = f"{world.text('IDS_WELCOME_TITLE')} Field Studies (Quarn & Sons)."
    world.check_equal(showing(), frame + buttons(back, next_, cancel) + [("graphic", title), ("label", text)],
                      "the welcome page")
    wizard.press(NEXT)
    caption = world.text("IDS_TEMPLATE_CATALOG")
    controls = [("graphic", title), ("label", world.text("IDS_DESTINATION_PROMPT")), ("label", caption),
                ("text", caption), ("push button", world.text("IDS_CHOOSEDIR_TITLE"))]
    wait_for(lambda: showing() == frame + buttons(back, next_, cancel) + controls, f"{controls}, not {showing()}")
    wizard.press(CANCEL)
    message = wizard.message()
    question = world.text("IDS_ACCEPT_CANCEL")
    found = [each for each in showing() if each not in frame + buttons(back, next_, cancel) + controls]
    for expected in [("label", question), *buttons("Yes", "No")]:
        world.check(expected in found, f"{expected} in the question, of {found}")
    message.key("Escape")
    wizard.wait_closed(message, "the question")
    wizard.install_from_directory_page()
    wait_for(lambda: ("check box", world.text("IDS_SUCCESS_OPENDESCR")) in showing(), "the check box")
    # What does not show now was looked at before or, as the progress page, went by too fast.
    nameless = [found for found in reader.objects() if found[0] not in ("separator", "filler") and not found[1]]
    world.check_equal(nameless, [], "controls without a name")
    world.check("progress bar" in [role for role, *_ in reader.objects()], "the progress bar has its role")
    wizard.press(CHECK_BOX)
    wizard.press(NEXT)
    wizard.finish()
