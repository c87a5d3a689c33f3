"""One module for each desktop. A module has

NAME        as in XDG_CURRENT_DESKTOP
PACKAGES    what has to be installed, see Packaging/packages
PROGRAM     whose presence tells that they are
SETTLING    seconds that the shell needs after it shows status items
PANEL       where its items are: left, top, width and height on the screen
BUTTON      the pointer button that opens the menu
CANNOT      what this desktop does not do, by the name of the step, and why
NOTIFIER             optional: the program of its notifications, unless the shell shows them
NOTIFICATION_ACTION  optional: where a notification is chosen, as parts of its width and height
ROWS                 optional: where rows are in their menus, as parts of the height, on a desktop
                     whose menus take no keys
OPENS_SILENTLY       optional: whether it shows a menu without a call to it
WAYLAND              optional: whether its windows are hidden from the X screen, in which it is nested
start       starts what belongs to the session but is not restarted
start_shell starts the program that shows the items, as the session's "shell"
after_shell optional: what a user does once it has started
"""
