reset
set size 1.0,1.0
set pointsize 1.0
set tics nomirror
set encoding iso_8859_1
set term postscript eps enhanced color 20
set output "mob_plane_yz.eps"

set polar
set grid polar
set angles degrees

set ylabel "{/Symbol m} / cm^2/Vs" offset 0,0

set xrange [-9.74478e-07:9.74478e-07]
set yrange [-9.74478e-07:9.74478e-07]

plot "mob_plane_yz.dat" with lines lt 1 lw 3 t ''

set size 1.0,1.0
