# title: geotool calib — a scanned sheet of Vienna calibrated three ways (UTM grid, geographic, graticule)
set -e
CAL=$SAMPLES/calib-vienna.xml
echo "--- calib show (UTM grid calibration, image size read from the BMP header)"
"$GEOTOOL" calib show "$CAL" --id utm
echo
echo "--- pixels to places under each calibration of the same sheet"
for id in utm geo grat; do
  printf '%-5s ' "$id"
  "$GEOTOOL" calib pix2geo "$CAL" --id "$id" 400 300
done
echo
echo "--- places to pixels: St. Stephen's Cathedral and the Prater Riesenrad"
printf '%s\n' "48.20849 16.37307" "48.21662 16.39587" | "$GEOTOOL" calib geo2pix "$CAL" --id geo
echo
echo "--- calib fit: a conic calibration fitted from control points read off the sheet"
printf '%s\n' "100 100" "700 100" "100 500" "700 500" "400 300" "250 450" > "$DEMO_TMP/pixels.txt"
"$GEOTOOL" calib pix2geo "$CAL" --id utm < "$DEMO_TMP/pixels.txt" | paste -d' ' - "$DEMO_TMP/pixels.txt" |
  awk '{ printf "%.5f %.5f %s %s\n", $1, $2, $4, $5 }' > "$DEMO_TMP/points.txt"
cat "$DEMO_TMP/points.txt"
"$GEOTOOL" calib fit --model conicconformal --size 800x600 --id conic --map calib-vienna.bmp \
  --caption "Wien (conic)" < "$DEMO_TMP/points.txt" 2>&1 > "$DEMO_TMP/conic.xml"
cat "$DEMO_TMP/conic.xml"
"$GEOTOOL" calib pix2geo "$DEMO_TMP/conic.xml" --size 800x600 400 300
