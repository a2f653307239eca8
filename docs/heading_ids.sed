# Gives each "## Heading" of a Markdown page the anchor GitHub gives it
# ("## Byte order" -> "byte-order"), so that links such as (#byte-order)
# work in the HTML reference as they do on the repository's site.
/^##+ / {
  s/^(##+) (.*)$/\1 \2 {#\L\2}/
  :punctuation
  s/(\{#[a-z0-9 _-]*)[^a-z0-9 _}-]/\1/
  t punctuation
  :space
  s/(\{#[^ }]*) /\1-/
  t space
}
