// The search: every name, page and error code is in search-index.js, so that it works from files, without a server.
"use strict";

(() => {
    const root = document.body.dataset.root;
    const input = document.getElementById("search");
    const results = document.getElementById("results");
    const most = 30;

    // On a wide screen the list of pages is always open.
    const menu = document.getElementById("menu");
    const wide = matchMedia("(min-width: 50.01rem)");
    const adapt = () => { menu.open = wide.matches; };
    wide.addEventListener("change", adapt);
    adapt();

    // Lower is better; none of the words may be missing.
    function rank([name, kind, , summary], words) {
        const lower = name.toLowerCase();
        const last = lower.split("::").pop();
        let sum = lower.length / 100;
        for (const word of words) {
            if (last === word) continue;
            if (last.startsWith(word)) sum += 1;
            else if (lower.includes(word)) sum += 2;
            else if (summary.toLowerCase().includes(word)) sum += 6;
            else return Infinity;
        }
        return kind === "class" || kind === "guide" ? sum - 0.5 : sum;
    }

    function item([name, kind, path, summary]) {
        const row = document.createElement("li");
        const link = row.appendChild(document.createElement("a"));
        link.href = root + path;
        link.textContent = name;
        link.appendChild(document.createElement("small")).textContent = summary ? kind + ": " + summary : kind;
        return row;
    }

    function show() {
        const words = input.value.toLowerCase().split(/\s+/).filter(Boolean);
        results.hidden = words.length === 0;
        if (results.hidden) return;
        const seen = new Set();
        const found = searchIndex.map(entry => [rank(entry, words), entry]).filter(([value]) => value < Infinity)
            .sort((a, b) => a[0] - b[0]).map(([, entry]) => entry)
            .filter(([name, , path]) => !seen.has(name + path.split("#")[0]) && seen.add(name + path.split("#")[0]));
        results.replaceChildren(...found.slice(0, most).map(item));
        if (found.length === 0) results.appendChild(document.createElement("p")).textContent = "Nothing has that name.";
    }

    input.addEventListener("input", show);
    input.addEventListener("keydown", event => {
        const first = results.querySelector("a");
        if (event.key === "Enter" && first) first.click();
        if (event.key === "ArrowDown" && first) { event.preventDefault(); first.focus(); }
    });
    results.addEventListener("keydown", event => {
        const step = { ArrowDown: "nextElementSibling", ArrowUp: "previousElementSibling" }[event.key];
        if (!step) return;
        event.preventDefault();
        const next = document.activeElement.closest("li")?.[step];
        (next ? next.firstElementChild : input).focus();
    });
    document.addEventListener("keydown", event => {
        if (event.key === "/" && document.activeElement !== input) { event.preventDefault(); input.focus(); }
        if (event.key === "Escape") { results.hidden = true; input.blur(); }
    });
    document.addEventListener("click", event => { if (!event.target.closest(".search")) results.hidden = true; });
    addEventListener("hashchange", () => { results.hidden = true; });
})();
