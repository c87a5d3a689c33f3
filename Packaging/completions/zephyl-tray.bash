# Completion of zephyl-tray for bash.

_zephyl_tray_servers() {
  zephyl-tray servers --json 2>/dev/null |
    sed 's/},{/}\n{/g' | sed -n 's/.*"id":"\([^"]*\)".*/\1/p'
}

_zephyl_tray_requests() {
  zephyl-tray requests 2>/dev/null | sed -n 's/^\([^ ]*\)  .*/\1/p'
}

_zephyl_tray() {
  local current=${COMP_WORDS[COMP_CWORD]} words=
  if ((COMP_CWORD == 1)); then
    words='--desktop --terminal --headless --version --help status servers folders requests answer
      logs diagnostics watch join open restart-agent restart-tailnet quit defaults autostart doctor'
  else
    case ${COMP_WORDS[1]} in
      status | servers | folders | requests | watch | doctor) words='--json --help' ;;
      logs) words="--follow --help $(_zephyl_tray_servers)" ;;
      restart-tailnet) words="--help $(_zephyl_tray_servers)" ;;
      open) words='join servers --help' ;;
      autostart) words='on off status --help' ;;
      answer)
        case $COMP_CWORD in
          2) words="--help $(_zephyl_tray_requests)" ;;
          3) words='deny once always' ;;
        esac
        ;;
      defaults)
        case $COMP_CWORD in
          2) words='read write delete --help' ;;
          3) words='trayPort onboardingPort repoRoot desktopLaunchCommand SUAutomaticallyUpdate' ;;
          *) words='--string --integer' ;;
        esac
        ;;
      --*) words='--desktop --terminal --headless --version --help' ;;
      *) words='--help' ;;
    esac
  fi
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$current")
}

complete -F _zephyl_tray zephyl-tray
