// What a step of an order's life says, in words: shared by the diagram and the table.

// "Buy 100 @ 10.5", or what was filled; for a report also what was filled in all and what is left.
export function stepFigures(step) {
  const {values} = step;
  const parts = [];
  if (values.LastQty && Number(values.LastQty) !== 0) {
    parts.push(`filled ${values.LastQty}${values.LastPx ? ` @ ${values.LastPx}` : ""}`);
  } else if (values.OrderQty) {
    parts.push(`${step.names.Side ? `${step.names.Side} ` : ""}${values.OrderQty}${values.Price ? ` @ ${values.Price}` : ""}`);
  }
  if (step.isReport && values.CumQty) {
    parts.push(`cum ${values.CumQty}`);
  }
  if (step.isReport && values.LeavesQty) {
    parts.push(`leaves ${values.LeavesQty}`);
  }
  return parts.join(", ");
}

// "Partially filled", with the kind of report where that says more.
export function stepStatus(step) {
  const status = step.names.OrdStatus ?? (step.isReport ? step.values.OrdStatus : "") ?? "";
  const kind = step.names.ExecType ?? "";
  return kind && kind !== status ? [kind, status].filter(Boolean).join(" / ") : status;
}
