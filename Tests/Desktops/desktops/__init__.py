"""One module for each desktop. A module defines

NAME         the value of XDG_CURRENT_DESKTOP
PACKAGES     the Debian packages that the desktop needs, see Packaging/packages
PROGRAM      a program that is installed only with these packages
SETTLING     the seconds that the shell needs to settle after it first shows status items
PANEL        the area of the screen that contains the items: left, top, width and height
BUTTON       the pointer button that opens the menu
UNSUPPORTED  the steps that the desktop does not support, each with the reason
start        a function that starts the programs of the session that are never restarted
start_shell  a function that starts the program that shows the items, under the name "shell"

and optionally

NOTIFIER             the notification daemon, unless the shell shows notifications itself
NOTIFICATION_ACTION  the place to click in a notification, as fractions of its width and height
                     (default: its center)
ROWS                 the vertical positions of rows, as fractions of the height of their menu, on a
                     desktop whose menus ignore keys
READS_WHEN_OPENED    true if the panel reads a menu whose rows have changed only when it is opened
OPENS_SILENTLY       true if the panel opens the menu without a call to the tray
WAYLAND              true if the desktop is a Wayland session nested in the X screen, whose windows
                     xdotool cannot find
SUPPORTS_MONITORS    true if the module sets up several monitors, of which the first one is used
after_shell          a function that performs the input that is needed after the shell has started
"""
