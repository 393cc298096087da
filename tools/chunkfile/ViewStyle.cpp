#include "chunkfile/ViewPage.h"

namespace Corvane::FileTool {

// Texts have a contrast of 4.5 and more with what is around them, pictures of 3 and more, both in light and in dark.
// --k0 to --k7 are the kinds of bytes, in the order of ByteKind.
const std::string_view kViewStyle = R"(
:root {
  color-scheme: light dark;
  --page: #f6f7f9; --card: #fff; --ink: #1c2127; --soft: #55606c; --line: #d9dee4;
  --k0: #828c97; --k1: #79838e; --k2: #2b6cb8; --k3: #1c2127; --k4: #0c8379; --k5: #b06f00; --k6: #cb2d1c; --k7: #6f42c1;
  --good: #1a7a3c; --on: #fff;
}
@media screen and (prefers-color-scheme: dark) {
  :root {
    --page: #0f1317; --card: #171c22; --ink: #e8ebee; --soft: #a3adb8; --line: #303840;
    --k0: #6d7782; --k1: #8f99a4; --k2: #5b9ee8; --k3: #f2f4f6; --k4: #35c2b1; --k5: #e2a93b; --k6: #ff7563; --k7: #b394f4;
    --good: #56c97f; --on: #0f1317;
  }
}
* { box-sizing: border-box; }
body {
  margin: 0 auto; padding: clamp(1rem, 4vw, 3rem) clamp(.8rem, 4vw, 2.5rem); max-width: 76rem;
  background: var(--page); color: var(--ink); font: 1rem/1.5 system-ui, sans-serif; font-variant-numeric: tabular-nums;
}
i { font-style: normal; margin-left: .18em; }
code, h1, .mono, tbody th { font-family: ui-monospace, "DejaVu Sans Mono", monospace; font-weight: 500; }
h1 { margin: .4rem 0; font-size: clamp(1.25rem, 4vw, 1.9rem); line-height: 1.25; overflow-wrap: anywhere; }
h2 { margin: 0 0 .2rem; font-size: 1.15rem; }
h3 { margin: 0; font-size: 1rem; overflow-wrap: anywhere; }
p { margin: .3rem 0; max-width: 46rem; text-wrap: pretty; }
small, .soft, figcaption { color: var(--soft); font-size: .875rem; }
section, .key, article { background: var(--card); border: 1px solid var(--line); border-radius: .6rem; }
section { margin-top: 1.25rem; padding: clamp(.9rem, 3vw, 1.6rem); }
figure { margin: 1rem 0 0; }
.verdict, .tag { border-radius: 1rem; background: var(--k6); color: var(--on); font-weight: 600; }
.verdict { display: inline-block; padding: .15rem .8rem; }
.verdict.sound { background: var(--good); }
.tag { padding: .05rem .55rem; font-size: .8125rem; }
.tag.warning { background: var(--k5); }
.tag.note { background: none; color: var(--soft); box-shadow: inset 0 0 0 1px currentColor; }
.lead { margin: .7rem 0 0; max-width: none; font-size: 1.125rem; text-wrap: balance; }
.key { display: grid; grid-template-columns: repeat(auto-fit, minmax(9.5rem, 1fr)); margin: 1.25rem 0 0; overflow: hidden; }
.key div { padding: .9rem 1.1rem; box-shadow: -1px -1px 0 var(--line); }
dt { color: var(--soft); font-size: .875rem; }
dd { margin: 0; }
.key b { display: block; font-size: 1.5rem; font-weight: 600; line-height: 1.3; }
.facts { display: grid; grid-template-columns: max-content 1fr; gap: .15rem 1.25rem; margin: .6rem 0 0; }
.facts dd { overflow-wrap: anywhere; }
.findings { margin: .6rem 0 0; padding: 0; list-style: none; }
.findings li { padding: .6rem 0; border-top: 1px solid var(--line); overflow-wrap: anywhere; }
.findings small { display: block; margin-top: .15rem; }
svg { display: block; width: 100%; height: 100%; }
.patterns { position: absolute; width: 0; height: 0; }
.map { display: flex; gap: .7rem; margin-top: 1rem; }
.map > :last-child { flex: 1; min-width: 0; }
.lines { color: var(--soft); font-size: .6875rem; text-align: right; white-space: nowrap; }
.lines span { display: block; height: 1rem; line-height: 1rem; }
.legend { display: flex; flex-wrap: wrap; gap: .4rem 1.5rem; margin: .9rem 0 0; padding: 0; list-style: none; }
.swatch { display: inline-block; width: .95rem; height: .95rem; margin-right: .4rem; vertical-align: -.1rem; }
figcaption .swatch { margin-left: 1rem; }
.k0 { fill: url(#k0); } .k1 { fill: url(#k1); } .k2 { fill: var(--k2); } .k3 { fill: var(--k3); }
.k4 { fill: var(--k4); } .k5 { fill: url(#k5); } .k6 { fill: url(#k6); } .k7 { fill: url(#k7); }
.plot { position: relative; height: 9rem; margin: .8rem 0 0 4.6rem; }
.plot.band { height: 6.5rem; margin: .3rem 0 0; }
.band + .axis { margin-left: 0; }
.band + .axis span:nth-child(even):not(.last) { display: none; }
.limit { margin-top: .5rem; font-size: .8125rem; line-height: 1.2; overflow-wrap: anywhere; }
.axis + .limit { margin-top: 0; }
.plot rect { fill: transparent; }
.plot rect:hover { fill: var(--ink); fill-opacity: .12; }
.grid, .value { fill: none; stroke: var(--line); vector-effect: non-scaling-stroke; }
.value { fill: var(--k2); fill-opacity: .35; stroke: var(--k2); stroke-width: 1.5; stroke-linejoin: round; }
.y, .axis span { position: absolute; color: var(--soft); font-size: .75rem; line-height: 1; white-space: nowrap; }
.y { right: 100%; margin-right: .5rem; transform: translateY(-50%); max-width: 4.1rem; overflow: hidden; text-overflow: ellipsis; }
.axis { position: relative; height: 1.1rem; margin: .4rem 0 0 4.6rem; }
.axis span { transform: translateX(-50%); }
.axis .first { transform: none; }
.axis .last { transform: translateX(-100%); }
.fields { display: grid; grid-template-columns: repeat(auto-fill, minmax(min(100%, 21rem), 1fr)); gap: 1rem; margin-top: 1rem; }
article { padding: .9rem 1rem; background: none; min-width: 0; }
details { margin-top: .8rem; }
summary { width: fit-content; color: var(--k2); font-size: .875rem; cursor: pointer; }
:focus-visible { outline: 2px solid var(--k2); outline-offset: 2px; border-radius: .2rem; }
.scroll { max-height: 24rem; margin-top: .5rem; overflow: auto; }
table { border-collapse: collapse; font-size: .8125rem; }
th, td { padding: .2rem .9rem .2rem 0; text-align: right; vertical-align: top; white-space: nowrap; }
td:last-child { padding-right: .3rem; }
th:first-child { text-align: left; }
thead th { position: sticky; top: 0; background: var(--card); color: var(--soft); font-weight: 500; }
tbody tr { border-top: 1px solid var(--line); }
footer { margin-top: 1.5rem; color: var(--soft); font-size: .8125rem; }
@media (max-width: 34rem) {
  .lines { display: none; }
  .plot:not(.band), .plot:not(.band) + .axis { margin-left: 3.4rem; }
  .y { max-width: 3rem; }
  .axis span:nth-child(even):not(.last) { display: none; }
  .facts { grid-template-columns: 1fr; gap: 0; }
  .facts dd { margin-bottom: .4rem; }
  .key { grid-template-columns: 1fr 1fr; }
  .key b { font-size: 1.25rem; }
  .key div:last-child:nth-child(odd) { grid-column: 1 / -1; }
}
@media print {
  @page { margin: 14mm; }
  :root { font-size: 78%; }
  body { max-width: none; padding: 0; background: none; print-color-adjust: exact; }
  section, .key, article { break-inside: avoid; }
  #fields { break-inside: auto; border: none; padding: 0; }
  details { display: none; }
}
)";

const std::string_view kViewPatterns = R"svg(<svg class="patterns" aria-hidden="true"><defs>
<pattern id="cells" width="10" height="10" patternUnits="userSpaceOnUse"><path fill="var(--card)" d="M9 0h1v10H0V9h9z"/></pattern>
<pattern id="k0" width="10" height="10" patternUnits="userSpaceOnUse"><path fill="var(--k0)" d="M3 4h3v2H3z"/></pattern>
<pattern id="k1" width="10" height="10" patternUnits="userSpaceOnUse"><path fill="var(--k1)" d="M0 0h9v3H0zM0 6h9v3H0z"/></pattern>
<pattern id="k5" width="10" height="10" patternUnits="userSpaceOnUse"><path fill="var(--k5)" d="M0 0h4v10H0zM5 0h4v10H5z"/></pattern>
<pattern id="k6" width="10" height="10" patternUnits="userSpaceOnUse"><path fill="var(--k6)" d="M0 0h10v10H0z"/><path stroke="var(--card)" stroke-width="1.2" d="M-1 10L10 -1"/></pattern>
<pattern id="k7" width="10" height="10" patternUnits="userSpaceOnUse"><path fill="var(--k7)" d="M0 0h10v10H0z"/><path stroke="var(--card)" stroke-width="1.2" d="M0 0L9 9M9 0L0 9"/></pattern>
</defs></svg>
)svg";

}  // namespace Corvane::FileTool
