# title: geotool landmarks / symbols — a landmark file, its GeoJSON form and back, a symbol catalogue
set -euo pipefail
echo "--- landmark set \"stations\" of $(basename "$SAMPLES/landmarks-vienna.xml") (tab-separated, every field):"
"$GEOTOOL" landmarks "$SAMPLES/landmarks-vienna.xml" --id stations
echo "--- the first set: number, position, class, symbol kind, caption, identifier, time"
"$GEOTOOL" landmarks "$SAMPLES/landmarks-vienna.xml" | cut -f 1-5,7,14,26,27
echo "--- as GeoJSON (first feature):"
"$GEOTOOL" landmarks "$SAMPLES/landmarks-vienna.xml" --to-geojson > "$DEMO_TMP/vienna.geojson"
sed -n 2p "$DEMO_TMP/vienna.geojson"
echo "--- back to a landmark file; the listing is unchanged:"
"$GEOTOOL" landmarks --from-geojson "$DEMO_TMP/vienna.geojson" --id vienna > "$DEMO_TMP/vienna.xml"
if diff <("$GEOTOOL" landmarks "$SAMPLES/landmarks-vienna.xml") <("$GEOTOOL" landmarks "$DEMO_TMP/vienna.xml"); then
  echo "identical: $(grep -c '<landmark ' "$DEMO_TMP/vienna.xml") landmarks"
fi
echo "--- symbol catalogue $(basename "$SAMPLES/symbols-basic.xml"):"
"$GEOTOOL" symbols "$SAMPLES/symbols-basic.xml"
