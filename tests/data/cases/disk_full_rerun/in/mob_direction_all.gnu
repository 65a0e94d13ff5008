reset
set size 1.0,1.0
set pointsize 1.0
set encoding iso_8859_1
set term postscript eps enhanced color 20

set ticslevel 0.0
set view 40,56,0.98
set angles degrees
set mapping spherical
set parametric

set output "mob_direction_all.eps"

unset key
unset colorbox

set xrange [-0.00:0.00]
set yrange [-0.00:0.00]
set zrange [-0.00:0.00]

set pm3d depthorder

# set view equal xyz
set xtics 0,1e-05 offset 0.0,-0.5
set ytics 0,1e-05 offset 0.0,-1.0
set ztics 0,1e-05

set border 4095
splot 'mob_direction_all.dat' u 2:($1-90.0):3 with pm3d

# set border 31
# splot 'mob_direction_all.dat' u 2:($1-90.0):3 with lines lw 3

