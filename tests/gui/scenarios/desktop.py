"""What depends on the desktop: the folder chooser, bundles, screens, screen readers."""

import re
import socket

from desktop import wait_for
from scenarios.registry import needs, scenario
from world import BROWSE, CANCEL, CHECK_BOX, NEXT


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


@scenario
@needs("bundle")
def a_copy_of_a_bundle_says_what_to_do_before_it_misses_its_kit(world):
    world.use_bundle()
    copy = world.root / "AppTranslocation/1D2E/d"
    copy.parent.mkdir(parents=True)
    world.application.rename(copy)
    world.setup = copy / "Setup.app/Contents/MacOS/setup"
    wizard = world.start()
    advice = wizard.message()
    advice.key("Return")
    wizard.wait_closed(advice, "the advice")
    wizard.message().key("Return")
    wizard.finish()


# --- Screens --------------------------------------------------------------------------------------


@scenario
@needs("scaling")
def a_dense_screen_gets_a_larger_window(world):
    files = world.pack_example()
    wizard = world.start(QT_SCALE_FACTOR="1.5")
    window = wizard.main_window()
    world.check_equal(window.size, (750, 540), "size of the window")
    next_ = [round(1.5 * coordinate) for coordinate in NEXT]
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
    # Only the desktop knows the window's position there; the wizard assumes the one that it asked for.
    count = world.pack_slow()
    desktop = world.start_wayland((640, 500))
    wizard = world.start(DISPLAY=None, WAYLAND_DEBUG="client")
    middle = (320, 250)  # within the window wherever the desktop puts it

    def pointer():
        """Where the program is told that the pointer is."""
        desktop.point_at(*middle)
        desktop.point_at(middle[0] + 1, middle[1])
        return re.findall(r"wl_pointer@\d+\.motion\(\d+, ([\d.]+), ([\d.]+)\)", wizard.output)

    x, y = (float(each) for each in wait_for(pointer, "the pointer in the window")[-1])
    # The program draws the frame itself.
    frame_left, frame_top = 3, 30

    def at(position):
        return round(middle[0] + 1 - x + frame_left + position[0]), round(middle[1] - y + frame_top + position[1])

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
