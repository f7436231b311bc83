"""Languages, and the letters of directories."""

import os
import shutil
import subprocess

from desktop import wait_for
from scenarios.registry import scenario
from world import NEXT, Missing


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
