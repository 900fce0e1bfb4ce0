title Backup
read_script backup_read.sh
check_script backup_save.sh check
write_script backup_save.sh write
navbar_script navbar.sh
expert_mode
body
error $E$
select backup_when
label When
choice never Never
choice daily Every day
choice weekly Every week
field backup_hour 4
label Hour
check nullok decimal 0 23
field backup_host 30
label Server
check nullok ipaddr ipv4 ipv6 hostname
if $X$
field backup_path 40
label Folder there
check nullok path
else
error $E:backup_path$
endif
