reset
set size 1.0,1.0
set pointsize 1.0
set tics nomirror
set encoding iso_8859_1
set term postscript eps enhanced color 20
set output "mob_plane_xz.eps"

set polar
set grid polar
set angles degrees

set ylabel "{/Symbol m} / cm^2/Vs" offset 0,0

set xrange [-4.14849e-05:4.14849e-05]
set yrange [-4.14849e-05:4.14849e-05]

plot "mob_plane_xz.dat" with lines lt 1 lw 3 t ''

set size 1.0,1.0
