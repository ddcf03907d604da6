// SPDX-License-Identifier: Apache-2.0
// The boot page's style and script, inlined into every page so that it
// needs nothing at view time (system fonts only).
#pragma once

namespace extprop_sim {

constexpr char kHtmlPageStyle[] = R"css(
body { font-family: system-ui, sans-serif; margin: 1.5em; color: #1d1d1f; }
h1 { font-size: 1.4em; } h2 { font-size: 1.15em; margin-top: 1.6em; }
table { border-collapse: collapse; margin: .4em 0; }
th, td { border: 1px solid #d0d0d7; padding: .15em .5em; text-align: left; vertical-align: top; }
th { background: #f0f0f5; }
td.mono, .mono { font-family: ui-monospace, monospace; font-size: .92em; }
tr.refused td { background: #ffd9d9; }
.effect-new { color: #176b20; } .effect-changed { color: #8a5a00; } .effect-refused { color: #b00020; font-weight: bold; }
.step { margin: .8em 0; padding: .3em .6em; border-left: 4px solid #6a7fdb; }
.boot { font-weight: bold; margin-top: 1em; }
.scroll { overflow-x: auto; }
#grid thead th:not(:first-child) { writing-mode: vertical-rl; transform: rotate(180deg); font-size: .85em; padding: .4em .15em; }
#grid td.cell { text-align: center; min-width: 1.8em; }
#grid td.wins { background: #c8f0c8; font-weight: bold; }
#grid td.defines { background: #f3ecc8; }
#grid:not(.all) tr.single { display: none; }
.summary { background: #f6f6f9; padding: .5em .8em; }
.refusals li { color: #b00020; }
#properties { width: 100%; table-layout: fixed; }
#properties td { overflow-wrap: anywhere; }
#properties th:nth-child(1) { width: 30%; } #properties th:nth-child(2) { width: 25%; }
#filter { font-size: 1em; padding: .2em .4em; width: 24em; }
)css";

// The filter box hides the rows of the property table that don't contain its
// text; "#filter=TEXT" in the page's address fills it in.
constexpr char kHtmlPageScript[] = R"js(
(function () {
  var box = document.getElementById('filter');
  function apply(text) {
    var needle = text.toLowerCase(), shown = 0;
    var rows = document.querySelectorAll('#properties tbody tr');
    for (var i = 0; i < rows.length; ++i) {
      var match = rows[i].textContent.toLowerCase().indexOf(needle) >= 0;
      rows[i].hidden = !match;
      if (match) ++shown;
    }
    document.getElementById('shown').textContent = String(shown);
  }
  function fromAddress() {
    var found = /^#filter=(.*)$/.exec(location.hash);
    if (!found) return;
    box.value = decodeURIComponent(found[1]);
    apply(box.value);
  }
  box.addEventListener('input', function () { apply(box.value); });
  document.getElementById('all-rows').addEventListener('change', function (e) {
    document.getElementById('grid').classList.toggle('all', e.target.checked);
  });
  window.addEventListener('hashchange', fromAddress);
  fromAddress();
})();
)js";

}  // namespace extprop_sim
