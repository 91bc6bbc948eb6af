// Details, zoom and search of the boxes around it. A box knows which samples are its own: they are a range, and
// the ranges of what it calls lie within.
(() => {
    const drawing = document.currentScript.ownerSVGElement;
    const svg = (name, attributes, text = "") => {
        const element = document.createElementNS("http://www.w3.org/2000/svg", name);
        for (const [attribute, value] of Object.entries(attributes)) {
            element.setAttribute(attribute, value);
        }
        element.textContent = text;
        return element;
    };
    const boxes = [...drawing.querySelectorAll("#boxes > svg")].map((element) => {
        const [name, figures] = element.querySelector("title").textContent.split("\n");
        const start = Number(element.dataset.start);
        const samples = Number(element.dataset.samples);
        const row = Number(element.getAttribute("y"));
        const label = element.querySelector("text");
        return { element, label, name, figures, start, samples, end: start + samples, row };
    });
    if (boxes.length === 0) {
        return;
    }
    const whole = boxes[0];
    const byElement = new Map(boxes.map((box) => [box.element, box]));
    const contains = (outer, inner) => outer.start <= inner.start && inner.end <= outer.end;
    const percent = (samples, all) => `${((100 * samples) / all).toFixed(1)} %`;

    const hint = "Point at a box for its figures, click it to zoom in; / to search, Esc to go back.";
    const details = svg("text", { id: "details", x: "1%", y: 67 }, hint);
    const showAll = svg("text", { id: "all", class: "right button", x: "99%", y: 67, display: "none" }, "show all");
    const matched = svg("text", { id: "matched", class: "right note", x: "99%", y: 45 });
    const holder = svg("foreignObject", { x: "79%", y: 9, width: "20%", height: 26 });
    const search = document.createElementNS("http://www.w3.org/1999/xhtml", "input");
    search.id = "search";
    search.placeholder = "search";
    holder.append(search);
    drawing.querySelector("#boxes").before(details, showAll, matched, holder);

    let focus = whole;
    let hovered = null;

    const place = () => {
        const width = drawing.querySelector("#boxes").getBoundingClientRect().width;
        for (const box of boxes) {
            const isOuter = box !== focus && box.row < focus.row && contains(box, focus);
            const isShown = isOuter || contains(focus, box) && box.row >= focus.row;
            box.element.setAttribute("display", isShown ? "inline" : "none");
            box.element.classList.toggle("outer", isOuter);
            if (isShown) {
                const start = isOuter ? 0 : (box.start - focus.start) / focus.samples;
                const part = isOuter ? 1 : box.samples / focus.samples;
                box.element.setAttribute("x", `${100 * start}%`);
                box.element.setAttribute("width", `${100 * part}%`);
                // A label is there if there is room for some of it.
                box.label.setAttribute("display", part * width > 14 ? "inline" : "none");
            }
        }
    };

    const showDetails = () => {
        const box = hovered ?? (focus === whole ? null : focus);
        const ofFocus = focus === whole || !box ? "" : `, ${percent(Math.min(box.samples, focus.samples), focus.samples)} of what is shown`;
        details.textContent = box ? `${box.name}: ${box.figures}${ofFocus}` : hint;
    };

    // Samples in several boxes, one inside the other, count once: callers come first.
    const find = () => {
        const wanted = search.value.trim().toLowerCase();
        let end = focus.start;
        let samples = 0;
        for (const box of boxes) {
            const isMatched = wanted !== "" && box.name.toLowerCase().includes(wanted);
            box.element.classList.toggle("matched", isMatched);
            const last = Math.min(box.end, focus.end);
            if (isMatched && box.element.getAttribute("display") !== "none" && last > end) {
                samples += last - Math.max(box.start, end);
                end = last;
            }
        }
        matched.textContent = wanted === "" ? "" : `${percent(samples, focus.samples)} matched`;
    };

    const zoom = (box) => {
        focus = box;
        showAll.setAttribute("display", box === whole ? "none" : "inline");
        place();
        showDetails();
        find();
    };

    const boxAt = (event) => byElement.get(event.target.closest("#boxes > svg"));
    drawing.addEventListener("mouseover", (event) => {
        hovered = boxAt(event) ?? null;
        showDetails();
    });
    drawing.addEventListener("click", (event) => {
        const box = boxAt(event);
        if (box) {
            zoom(box);
        }
    });
    showAll.addEventListener("click", () => zoom(whole));
    search.addEventListener("input", find);
    window.addEventListener("resize", place);
    window.addEventListener("keydown", (event) => {
        if (event.key === "/" && document.activeElement !== search) {
            event.preventDefault();
            search.focus();
        } else if (event.key === "Escape") {
            if (search.value !== "") {
                search.value = "";
                find();
            } else {
                zoom(whole);
            }
            search.blur();
        }
    });
    zoom(whole);
})();
