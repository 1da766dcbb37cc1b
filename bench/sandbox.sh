#!/bin/sh
# Runs on the emulated machine, for scripts/device --costs: how long the start of the unit takes, as
# it is shipped, without each setting of its sandbox, and in the ways that it is not written. Median
# of 3.
unit=/usr/lib/systemd/system/feature_toggled.service
trial=/run/systemd/system/trial.service

measure() { # WHAT, the unit being on standard input
  sed '/^\[Install\]/,$d' >"$trial"
  systemctl daemon-reload
  for _ in 1 2 3; do
    systemctl start trial
    begin=$(systemctl show -P InactiveExitTimestampMonotonic trial)
    end=$(systemctl show -P ActiveEnterTimestampMonotonic trial)
    systemctl stop trial
    echo $(((end - begin) / 1000))
  done | sort -n | sed -n "2s/^/| $1 | /p" | sed 's/$/ ms |/'
}

with() { sed "s/^NoNewPrivileges=yes/&\n$1/" "$unit"; }

systemctl stop feature_toggled
measure "as shipped" <"$unit"
settings=$(sed -n '/^ProtectSystem/,/^\[/s/^\([A-Za-z]*\)=.*/\1/p' "$unit" | sort -u)
for setting in $settings; do
  grep -v "^$setting=" "$unit" | measure "without \`$setting=\`"
done
for setting in ProtectKernelTunables ProtectControlGroups ProtectKernelModules ProtectKernelLogs; do
  with "$setting=yes" | measure "with \`$setting=yes\`"
done
sed 's/^ProtectHome=.*/ProtectHome=yes/' "$unit" | measure "with \`ProtectHome=yes\`"
sed -e 's/^Type=.*/Type=exec/' -e 's,^ExecStart=.*,ExecStart=/usr/sbin/feature_toggled,' \
  -e 's,^ExecStart=,ExecStartPre=/usr/sbin/feature_toggled --port 0\n&,' "$unit" |
  measure "with \`ExecStartPre=\` for the first run, and \`Type=exec\`"
sed -e 's/^Type=.*/Type=notify\nNotifyAccess=all/' \
  -e "s,&& {.*,; systemd-notify --ready; exec /usr/sbin/feature_toggled'," "$unit" |
  measure "with \`Type=notify\` and \`systemd-notify\`"
others='Capability|Ambient|NoNew|UMask|IPAddress|Device|Keyring|Memory|Lock|SystemCall'
grep -vE "^(Protect|Private|Restrict|Read|$others)" "$unit" | measure "without any sandbox"
