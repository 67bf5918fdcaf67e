// SPDX-FileCopyrightText: VQD_API contributors
// SPDX-License-Identifier: Apache-2.0
//
// Short forms for elements of the page.

export const byId = (id) => document.getElementById(id);

function fill(node, properties, children) {
    for (const [name, value] of Object.entries(properties)) {
        if (name.startsWith("on"))
            node.addEventListener(name.slice(2), value);
        else if (name in node && !(node instanceof SVGElement))
            node[name] = value;
        else
            node.setAttribute(name, value);
    }
    node.append(...children);
    return node;
}

export const element = (name, properties = {}, ...children) => fill(document.createElement(name), properties, children);
export const svg = (name, properties = {}, ...children) =>
    fill(document.createElementNS("http://www.w3.org/2000/svg", name), properties, children);

// Leaves a node alone that has the text already, because a change costs the browser a layout.
export function setText(node, text) {
    if (node.textContent !== text)
        node.textContent = text;
}

// A number for people; what is not known is a dash.
export const fixed = (value, digits = 0, unit = "") =>
    Number.isFinite(value) ? value.toFixed(digits).replace("-", "−") + (unit && `\u202f${unit}`) : "–";

// Turns the buttons of a list into tabs: one of them is selected, and the arrow keys go from one to the next.
export function tabList(list, onSelect) {
    const tabs = () => [...list.querySelectorAll('[role="tab"]')];
    const select = (chosen) => {
        for (const tab of tabs()) {
            tab.setAttribute("aria-selected", String(tab === chosen));
            tab.tabIndex = tab === chosen ? 0 : -1;
        }
        onSelect(chosen.dataset.value);
    };
    list.addEventListener("click", (event) => {
        const tab = event.target.closest('[role="tab"]');
        if (tab)
            select(tab);
    });
    list.addEventListener("keydown", (event) => {
        const step = { ArrowRight: 1, ArrowLeft: -1 }[event.key];
        const all = tabs();
        const next = all[(all.indexOf(document.activeElement) + step + all.length) % all.length];
        if (!step || !next)
            return;
        event.preventDefault();
        next.focus();
        select(next);
    });
    return (value) => {
        const tab = tabs().find(({ dataset }) => dataset.value === value);
        if (tab)
            select(tab);
    };
}
