# Completion of zephyl-tray for fish.

function __zephyl_tray_servers
    zephyl-tray servers --json 2>/dev/null | string replace --all '},{' \n |
        string replace --regex --filter '.*"id":"([^"]*)","name":"([^"]*)".*' '$1\t$2'
end

function __zephyl_tray_requests
    zephyl-tray requests 2>/dev/null | string replace --regex --filter '^(\S+)  (.*)$' '$1\t$2'
end

function __zephyl_tray_operand_of
    set -l words (commandline -opc)
    test (count $words) -eq $argv[2]; and test "$words[2]" = $argv[1]
end

complete -c zephyl-tray -f
complete -c zephyl-tray -n __fish_use_subcommand -l desktop -d 'Show a status item in the panel'
complete -c zephyl-tray -n __fish_use_subcommand -l terminal -d 'Show the menu in this terminal'
complete -c zephyl-tray -n __fish_use_subcommand -l headless -d 'Show no menu, write a log'
complete -c zephyl-tray -n __fish_use_subcommand -l version -d 'Print the version'
complete -c zephyl-tray -l help -d 'Print the help'

complete -c zephyl-tray -n __fish_use_subcommand -a status -d 'Print the state and what needs your attention'
complete -c zephyl-tray -n __fish_use_subcommand -a servers -d 'List the servers'
complete -c zephyl-tray -n __fish_use_subcommand -a folders -d 'List the shared folders'
complete -c zephyl-tray -n __fish_use_subcommand -a requests -d 'List the requests that wait for your approval'
complete -c zephyl-tray -n __fish_use_subcommand -a answer -d 'Decide a request'
complete -c zephyl-tray -n __fish_use_subcommand -a logs -d 'Show a log'
complete -c zephyl-tray -n __fish_use_subcommand -a diagnostics -d 'Print the document for a bug report'
complete -c zephyl-tray -n __fish_use_subcommand -a watch -d 'Print a line for each change'
complete -c zephyl-tray -n __fish_use_subcommand -a join -d 'Join a server'
complete -c zephyl-tray -n __fish_use_subcommand -a open -d 'Open the window'
complete -c zephyl-tray -n __fish_use_subcommand -a restart-agent -d 'Restart the agent'
complete -c zephyl-tray -n __fish_use_subcommand -a restart-tailnet -d 'Restart private networks'
complete -c zephyl-tray -n __fish_use_subcommand -a quit -d 'End the tray and the agent'
complete -c zephyl-tray -n __fish_use_subcommand -a defaults -d 'Read or change the stored settings'
complete -c zephyl-tray -n __fish_use_subcommand -a autostart -d 'Set whether the tray starts with the session'
complete -c zephyl-tray -n __fish_use_subcommand -a doctor -d 'List problems and their solutions'

complete -c zephyl-tray -n '__fish_seen_subcommand_from status servers folders requests watch doctor' -l json -d 'Print JSON'
complete -c zephyl-tray -n '__fish_seen_subcommand_from logs' -s f -l follow -d 'Print new lines as they are added'
complete -c zephyl-tray -n '__zephyl_tray_operand_of logs 2' -a '(__zephyl_tray_servers)'
complete -c zephyl-tray -n '__zephyl_tray_operand_of restart-tailnet 2' -a '(__zephyl_tray_servers)'
complete -c zephyl-tray -n '__zephyl_tray_operand_of open 2' -a 'join servers'
complete -c zephyl-tray -n '__zephyl_tray_operand_of autostart 2' -a 'on off status'
complete -c zephyl-tray -n '__zephyl_tray_operand_of answer 2' -a '(__zephyl_tray_requests)'
complete -c zephyl-tray -n '__zephyl_tray_operand_of answer 3' -a 'deny once always'
complete -c zephyl-tray -n '__zephyl_tray_operand_of defaults 2' -a 'read write delete'
complete -c zephyl-tray -n '__zephyl_tray_operand_of defaults 3' -a 'trayPort onboardingPort repoRoot desktopLaunchCommand SUAutomaticallyUpdate'
complete -c zephyl-tray -n '__fish_seen_subcommand_from defaults' -l string -d 'Store a string'
complete -c zephyl-tray -n '__fish_seen_subcommand_from defaults' -l integer -d 'Store an integer'
