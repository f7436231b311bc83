"""Where the executables differ as a user sees them. Everything else is the same for all of them."""

from desktop import SCREEN


class Qt:
    """The wizard on Qt."""

    offers = {"no display", "scaling", "screen reader", "wayland"}
    corner = (0, 0)  # where screens begin: at the top

    def chooser_of(self, wizard):
        """The folder chooser, once it is open."""
        return wizard.next_window("the folder chooser")

    def choose(self, chooser, directory):
        chooser.type(str(directory))
        chooser.key("Return")

    def dismiss(self, chooser):
        chooser.key("Escape")


class AppKit:
    """The wizard on AppKit, over GNUstep."""

    offers = {"bundle"}
    corner = (0, SCREEN[1] - 360)  # where screens begin: at the bottom

    def chooser_of(self, wizard):
        """The folder chooser, once it is open."""
        return wizard.next_window("the folder chooser")

    def choose(self, chooser, directory):
        # A typed path leads there; what is chosen is what is then selected in the list.
        name, first_in_list = (200, 376), (260, 102)
        chooser.click(*name)
        chooser.type(f"{directory.parent}/")
        chooser.click(*first_in_list)
        chooser.key("Return")

    def dismiss(self, chooser):
        chooser.key("Escape")


BRIDGES = {"qt": Qt, "appkit": AppKit}
