title Status
navbar_script navbar.sh
body
error $E$
center Status of $V:name$
text This is $B$$V:name$$R$, version $N:SW_VERSION$.$L$
  Reload the page to look again, if it does not do so by itself.

  $I$A second paragraph, set in; its price is 5 $$$.
fixed running 20
label Running for
ftable disks 2
fixed disk 12
label Disk
fixed free 8
label Free
