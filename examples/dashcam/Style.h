#pragma once

namespace Dashcam {

/// The style sheet of the page: light and dark, and one column on a phone.
constexpr const char* pageStyle = R"css(
:root { color-scheme: light dark;
  --page: #f4f5f7; --card: #ffffff; --ink: #14171c; --soft: #5a6271; --line: #e2e5ea;
  --x: #1d5fd1; --y: #c2570c; --z: #0b7f73; --event: #b4233c; --chip: #eceff4;
  --shadow: 0 1px 2px rgb(20 23 28 / .06), 0 8px 24px rgb(20 23 28 / .06); }
@media (prefers-color-scheme: dark) { :root {
  --page: #0e1013; --card: #171a1f; --ink: #e8eaee; --soft: #99a2b1; --line: #2a2f38;
  --x: #7db0ff; --y: #f2a65a; --z: #4fd0bf; --event: #ff7a8c; --chip: #232830;
  --shadow: none; } }
* { box-sizing: border-box; }
body { margin: 0; background: var(--page); color: var(--ink);
  font: 16px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "DejaVu Sans", sans-serif; }
main, body > header { max-width: 1180px; margin: 0 auto; padding: 0 20px; }
body > header { padding-top: 36px; padding-bottom: 8px; }
h1 { margin: 0; font-size: 28px; line-height: 1.2; letter-spacing: -.02em; }
h2 { margin: 0; font-size: 19px; line-height: 1.3; font-variant-numeric: tabular-nums; }
p { margin: 4px 0 0; color: var(--soft); }
a { color: var(--x); text-underline-offset: 2px; }
nav { display: flex; gap: 12px; overflow-x: auto; padding: 16px 0 4px; }
nav a { flex: 0 0 152px; color: var(--soft); font-size: 13px; text-decoration: none;
  font-variant-numeric: tabular-nums; }
nav img { display: block; width: 152px; aspect-ratio: 16/9; object-fit: cover; margin-bottom: 4px;
  border-radius: 8px; border: 1px solid var(--line); }
nav a:hover, nav a:focus-visible { color: var(--ink); }
article { margin: 20px 0; padding: 20px; background: var(--card); border: 1px solid var(--line);
  border-radius: 14px; box-shadow: var(--shadow); scroll-margin-top: 12px; }
article > header { display: flex; flex-wrap: wrap; align-items: baseline; gap: 8px 12px;
  margin-bottom: 14px; }
.chip { padding: 2px 10px; border-radius: 99px; background: var(--chip); color: var(--soft);
  font-size: 13px; white-space: nowrap; }
.chip.cause { background: color-mix(in srgb, var(--event) 14%, transparent); color: var(--event);
  font-weight: 600; }
.columns { display: grid; grid-template-columns: minmax(0, 5fr) minmax(0, 4fr); gap: 26px; }
video { display: block; width: 100%; aspect-ratio: 16/9; border-radius: 10px; background: #000; }
.files { display: flex; flex-wrap: wrap; gap: 4px 18px; margin-top: 10px; font-size: 14px; }
figure { margin: 0; }
figcaption { display: flex; flex-wrap: wrap; gap: 2px 16px; margin-bottom: 4px; font-size: 13px;
  color: var(--soft); }
figcaption i { display: inline-block; width: 14px; height: 3px; border-radius: 2px;
  margin-right: 6px; vertical-align: middle; }
i.x { background: var(--x); } i.y { background: var(--y); } i.z { background: var(--z); }
svg { display: block; width: 100%; height: auto; overflow: visible; }
svg text { fill: var(--soft); font-size: 13px; font-variant-numeric: tabular-nums; }
svg text.event { fill: var(--event); font-weight: 600; }
svg path { fill: none; stroke-width: 1; }
path.grid { stroke: var(--line); } path.zero { stroke: var(--soft); }
path.event { stroke: var(--event); stroke-width: 1.5; stroke-dasharray: 4 3; }
polyline { fill: none; stroke-width: 1.8; stroke-linejoin: round; }
polyline.x { stroke: var(--x); } polyline.y { stroke: var(--y); } polyline.z { stroke: var(--z); }
table { width: 100%; border-collapse: collapse; margin-top: 12px; font-size: 14px; }
th, td { padding: 5px 0; border-top: 1px solid var(--line); text-align: left; vertical-align: top;
  font-variant-numeric: tabular-nums; overflow-wrap: anywhere; }
th { width: 30%; padding-right: 12px; color: var(--soft); font-weight: 400; }
details { margin-top: 12px; font-size: 14px; }
summary { cursor: pointer; color: var(--soft); }
pre { margin: 8px 0 0; padding: 12px; overflow-x: auto; background: var(--page);
  border: 1px solid var(--line); border-radius: 8px; font-size: 12px; line-height: 1.5; }
@media (max-width: 760px) {
  main, body > header { padding-left: 14px; padding-right: 14px; }
  body > header { padding-top: 22px; }
  article { padding: 14px; border-radius: 12px; }
  .columns { grid-template-columns: minmax(0, 1fr); gap: 16px; }
  svg text { font-size: 21px; } polyline { stroke-width: 2.6; } }
)css";

}  // namespace Dashcam
