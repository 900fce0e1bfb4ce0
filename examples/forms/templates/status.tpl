title Status
navbar_script navbar.sh
body
error $E$
center Status of $V:name$
text This is $B$$V:name$$R$, version $N:SW_VERSION$.$L$
  It has been running for $V:minutes$ minutes.

  $I$A second paragraph, set in; its price is 5 $$$.
ftable disks 2
fixed disk 12
label Disk
fixed free 8
label Free
