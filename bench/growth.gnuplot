# Run time against the number of toggles: gnuplot -e "data='...'; plot_file='...'" growth.gnuplot
set terminal svg size 800,500 font 'sans-serif,14' background 'white'
set output plot_file
set logscale xy
set format x '10^{%T}'
set xlabel 'toggles'
set ylabel 'run time in ms (median)'
set key left top
set grid
plot data using 1:4 with linespoints title 'jq', \
     data using 1:2 with linespoints linewidth 2 title 'feature\_toggled', \
     data using 1:3 with linespoints title 'floor: reads and parses only'
