// The common tags of FIX 4.2 to 5.0 with their names, and the names of the types of messages.
#include "api/fix_dictionary_text.h"

namespace tabulo::api {

// Names without blanks, each behind its tag. Where versions differ the newest name stands.
const std::string_view FIX_TAG_NAMES = R"(
1 Account 2 AdvId 3 AdvRefID 4 AdvSide 5 AdvTransType 6 AvgPx 7 BeginSeqNo 8 BeginString 9 BodyLength 10 CheckSum
11 ClOrdID 12 Commission 13 CommType 14 CumQty 15 Currency 16 EndSeqNo 17 ExecID 18 ExecInst 19 ExecRefID
20 ExecTransType 21 HandlInst 22 SecurityIDSource 23 IOIID 24 IOIOthSvc 25 IOIQltyInd 26 IOIRefID 27 IOIQty
28 IOITransType 29 LastCapacity 30 LastMkt 31 LastPx 32 LastQty 33 NoLinesOfText 34 MsgSeqNum 35 MsgType 36 NewSeqNo
37 OrderID 38 OrderQty 39 OrdStatus 40 OrdType 41 OrigClOrdID 42 OrigTime 43 PossDupFlag 44 Price 45 RefSeqNum
46 RelatdSym 47 Rule80A 48 SecurityID 49 SenderCompID 50 SenderSubID 51 SendingDate 52 SendingTime 53 Quantity 54 Side
55 Symbol 56 TargetCompID 57 TargetSubID 58 Text 59 TimeInForce 60 TransactTime 61 Urgency 62 ValidUntilTime
63 SettlType 64 SettlDate 65 SymbolSfx 66 ListID 67 ListSeqNo 68 TotNoOrders 69 ListExecInst 70 AllocID
71 AllocTransType 72 RefAllocID 73 NoOrders 74 AvgPxPrecision 75 TradeDate 76 ExecBroker 77 PositionEffect 78 NoAllocs
79 AllocAccount 80 AllocQty 81 ProcessCode 82 NoRpts 83 RptSeq 84 CxlQty 85 NoDlvyInst 86 DlvyInst 87 AllocStatus
88 AllocRejCode 89 Signature 90 SecureDataLen 91 SecureData 92 BrokerOfCredit 93 SignatureLength 94 EmailType
95 RawDataLength 96 RawData 97 PossResend 98 EncryptMethod 99 StopPx 100 ExDestination 102 CxlRejReason
103 OrdRejReason 104 IOIQualifier 105 WaveNo 106 Issuer 107 SecurityDesc 108 HeartBtInt 109 ClientID 110 MinQty
111 MaxFloor 112 TestReqID 113 ReportToExch 114 LocateReqd 115 OnBehalfOfCompID 116 OnBehalfOfSubID 117 QuoteID
118 NetMoney 119 SettlCurrAmt 120 SettlCurrency 121 ForexReq 122 OrigSendingTime 123 GapFillFlag 124 NoExecs
125 CxlType 126 ExpireTime 127 DKReason 128 DeliverToCompID 129 DeliverToSubID 130 IOINaturalFlag 131 QuoteReqID
132 BidPx 133 OfferPx 134 BidSize 135 OfferSize 136 NoMiscFees 137 MiscFeeAmt 138 MiscFeeCurr 139 MiscFeeType
140 PrevClosePx 141 ResetSeqNumFlag 142 SenderLocationID 143 TargetLocationID 144 OnBehalfOfLocationID
145 DeliverToLocationID 146 NoRelatedSym 147 Subject 148 Headline 149 URLLink 150 ExecType 151 LeavesQty
152 CashOrderQty 153 AllocAvgPx 154 AllocNetMoney 155 SettlCurrFxRate 156 SettlCurrFxRateCalc 157 NumDaysInterest
158 AccruedInterestRate 159 AccruedInterestAmt 160 SettlInstMode 161 AllocText 162 SettlInstID 163 SettlInstTransType
164 EmailThreadID 165 SettlInstSource 166 SettlLocation 167 SecurityType 168 EffectiveTime 169 StandInstDbType
170 StandInstDbName 171 StandInstDbID 172 SettlDeliveryType 188 BidSpotRate 189 BidForwardPoints 190 OfferSpotRate
191 OfferForwardPoints 192 OrderQty2 193 SettlDate2 194 LastSpotRate 195 LastForwardPoints 196 AllocLinkID
197 AllocLinkType 198 SecondaryOrderID 199 NoIOIQualifiers 200 MaturityMonthYear 201 PutOrCall 202 StrikePrice
203 CoveredOrUncovered 204 CustomerOrFirm 205 MaturityDay 206 OptAttribute 207 SecurityExchange
208 NotifyBrokerOfCredit 209 AllocHandlInst 210 MaxShow 211 PegOffsetValue 212 XmlDataLen 213 XmlData
214 SettlInstRefID 215 NoRoutingIDs 216 RoutingType 217 RoutingID 218 Spread 219 Benchmark 220 BenchmarkCurveCurrency
221 BenchmarkCurveName 222 BenchmarkCurvePoint 223 CouponRate 224 CouponPaymentDate 225 IssueDate 226 RepurchaseTerm
227 RepurchaseRate 228 Factor 229 TradeOriginationDate 230 ExDate 231 ContractMultiplier 232 NoStipulations
233 StipulationType 234 StipulationValue 235 YieldType 236 Yield 237 TotalTakedown 238 Concession
239 RepoCollateralSecurityType 240 RedemptionDate 241 UnderlyingCouponPaymentDate 255 CreditRating 262 MDReqID
263 SubscriptionRequestType 264 MarketDepth 265 MDUpdateType 266 AggregatedBook 267 NoMDEntryTypes 268 NoMDEntries
269 MDEntryType 270 MDEntryPx 271 MDEntrySize 272 MDEntryDate 273 MDEntryTime 274 TickDirection 275 MDMkt
276 QuoteCondition 277 TradeCondition 278 MDEntryID 279 MDUpdateAction 280 MDEntryRefID 281 MDReqRejReason
282 MDEntryOriginator 283 LocationID 284 DeskID 285 DeleteReason 286 OpenCloseSettlFlag 287 SellerDays
288 MDEntryBuyer 289 MDEntrySeller 290 MDEntryPositionNo 291 FinancialStatus 292 CorporateAction 293 DefBidSize
294 DefOfferSize 295 NoQuoteEntries 296 NoQuoteSets 297 QuoteStatus 298 QuoteCancelType 299 QuoteEntryID
300 QuoteRejectReason 301 QuoteResponseLevel 302 QuoteSetID 303 QuoteRequestType 304 TotNoQuoteEntries
305 UnderlyingSecurityIDSource 306 UnderlyingIssuer 307 UnderlyingSecurityDesc 308 UnderlyingSecurityExchange
309 UnderlyingSecurityID 310 UnderlyingSecurityType 311 UnderlyingSymbol 312 UnderlyingSymbolSfx
313 UnderlyingMaturityMonthYear 315 UnderlyingPutOrCall 316 UnderlyingStrikePrice 317 UnderlyingOptAttribute
318 UnderlyingCurrency 320 SecurityReqID 321 SecurityRequestType 322 SecurityResponseID 323 SecurityResponseType
324 SecurityStatusReqID 325 UnsolicitedIndicator 326 SecurityTradingStatus 327 HaltReason 328 InViewOfCommon
329 DueToRelated 330 BuyVolume 331 SellVolume 332 HighPx 333 LowPx 334 Adjustment 335 TradSesReqID
336 TradingSessionID 337 ContraTrader 338 TradSesMethod 339 TradSesMode 340 TradSesStatus 341 TradSesStartTime
342 TradSesOpenTime 343 TradSesPreCloseTime 344 TradSesCloseTime 345 TradSesEndTime 346 NumberOfOrders
347 MessageEncoding 348 EncodedIssuerLen 349 EncodedIssuer 350 EncodedSecurityDescLen 351 EncodedSecurityDesc
352 EncodedListExecInstLen 353 EncodedListExecInst 354 EncodedTextLen 355 EncodedText 356 EncodedSubjectLen
357 EncodedSubject 358 EncodedHeadlineLen 359 EncodedHeadline 360 EncodedAllocTextLen 361 EncodedAllocText
362 EncodedUnderlyingIssuerLen 363 EncodedUnderlyingIssuer 364 EncodedUnderlyingSecurityDescLen
365 EncodedUnderlyingSecurityDesc 366 AllocPrice 367 QuoteSetValidUntilTime 368 QuoteEntryRejectReason
369 LastMsgSeqNumProcessed 371 RefTagID 372 RefMsgType 373 SessionRejectReason 374 BidRequestTransType
375 ContraBroker 376 ComplianceID 377 SolicitedFlag 378 ExecRestatementReason 379 BusinessRejectRefID
380 BusinessRejectReason 381 GrossTradeAmt 382 NoContraBrokers 383 MaxMessageSize 384 NoMsgTypes 385 MsgDirection
386 NoTradingSessions 387 TotalVolumeTraded 388 DiscretionInst 389 DiscretionOffsetValue 390 BidID 391 ClientBidID
392 ListName 393 TotNoRelatedSym 394 BidType 395 NumTickets 396 SideValue1 397 SideValue2 398 NoBidDescriptors
399 BidDescriptorType 400 BidDescriptor 401 SideValueInd 402 LiquidityPctLow 403 LiquidityPctHigh 404 LiquidityValue
405 EFPTrackingError 406 FairValue 407 OutsideIndexPct 408 ValueOfFutures 409 LiquidityIndType 410 WtAverageLiquidity
411 ExchangeForPhysical 412 OutMainCntryUIndex 413 CrossPercent 414 ProgRptReqs 415 ProgPeriodInterval 416 IncTaxInd
417 NumBidders 418 BidTradeType 419 BasisPxType 420 NoBidComponents 421 Country 422 TotNoStrikes 423 PriceType
424 DayOrderQty 425 DayCumQty 426 DayAvgPx 427 GTBookingInst 428 NoStrikes 429 ListStatusType 430 NetGrossInd
431 ListOrderStatus 432 ExpireDate 433 ListExecInstType 434 CxlRejResponseTo 435 UnderlyingCouponRate
436 UnderlyingContractMultiplier 437 ContraTradeQty 438 ContraTradeTime 441 LiquidityNumSecurities
442 MultiLegReportingType 443 StrikeTime 444 ListStatusText 445 EncodedListStatusTextLen 446 EncodedListStatusText
447 PartyIDSource 448 PartyID 451 NetChgPrevDay 452 PartyRole 453 NoPartyIDs 454 NoSecurityAltID 455 SecurityAltID
456 SecurityAltIDSource 457 NoUnderlyingSecurityAltID 458 UnderlyingSecurityAltID 459 UnderlyingSecurityAltIDSource
460 Product 461 CFICode 462 UnderlyingProduct 463 UnderlyingCFICode 464 TestMessageIndicator 466 BookingRefID
467 IndividualAllocID 468 RoundingDirection 469 RoundingModulus 470 CountryOfIssue 471 StateOrProvinceOfIssue
472 LocaleOfIssue 479 CommCurrency 480 CancellationRights 481 MoneyLaunderingStatus 483 TransBkdTime 484 ExecPriceType
485 ExecPriceAdjustment 486 DateOfBirth 487 TradeReportTransType 497 FundRenewWaiv 506 RegistStatus 511 RegistEmail
514 RegistTransType 515 ExecValuationPoint 516 OrderPercent 517 OwnershipType 518 NoContAmts 519 ContAmtType
520 ContAmtValue 521 ContAmtCurr 523 PartySubID 524 NestedPartyID 525 NestedPartyIDSource 526 SecondaryClOrdID
527 SecondaryExecID 528 OrderCapacity 529 OrderRestrictions 530 MassCancelRequestType 531 MassCancelResponse
532 MassCancelRejectReason 533 TotalAffectedOrders 534 NoAffectedOrders 535 AffectedOrderID
536 AffectedSecondaryOrderID 537 QuoteType 538 NestedPartyRole 539 NoNestedPartyIDs 540 TotalAccruedInterestAmt
541 MaturityDate 542 UnderlyingMaturityDate 543 InstrRegistry 544 CashMargin 545 NestedPartySubID 546 Scope
547 MDImplicitDelete 548 CrossID 549 CrossType 550 CrossPrioritization 551 OrigCrossID 552 NoSides 553 Username
554 Password 555 NoLegs 556 LegCurrency 557 TotNoSecurityTypes 558 NoSecurityTypes 559 SecurityListRequestType
560 SecurityRequestResult 561 RoundLot 562 MinTradeVol 563 MultiLegRptTypeReq 564 LegPositionEffect
565 LegCoveredOrUncovered 566 LegPrice 567 TradSesStatusRejReason 568 TradeRequestID 569 TradeRequestType
570 PreviouslyReported 571 TradeReportID 572 TradeReportRefID 573 MatchStatus 574 MatchType 575 OddLot
576 NoClearingInstructions 577 ClearingInstruction 578 TradeInputSource 579 TradeInputDevice 580 NoDates
581 AccountType 582 CustOrderCapacity 583 ClOrdLinkID 584 MassStatusReqID 585 MassStatusReqType 586 OrigOrdModTime
587 LegSettlType 588 LegSettlDate 589 DayBookingInst 590 BookingUnit 591 PreallocMethod 592 UnderlyingCountryOfIssue
600 LegSymbol 601 LegSymbolSfx 602 LegSecurityID 603 LegSecurityIDSource 604 NoLegSecurityAltID 605 LegSecurityAltID
606 LegSecurityAltIDSource 607 LegProduct 608 LegCFICode 609 LegSecurityType 610 LegMaturityMonthYear
611 LegMaturityDate 612 LegStrikePrice 613 LegOptAttribute 614 LegContractMultiplier 615 LegCouponRate
616 LegSecurityExchange 617 LegIssuer 618 EncodedLegIssuerLen 619 EncodedLegIssuer 620 LegSecurityDesc
621 EncodedLegSecurityDescLen 622 EncodedLegSecurityDesc 623 LegRatioQty 624 LegSide 625 TradingSessionSubID
626 AllocType 627 NoHops 628 HopCompID 629 HopSendingTime 630 HopRefID 631 MidPx 632 BidYield 633 MidYield
634 OfferYield 635 ClearingFeeIndicator 636 WorkingIndicator 637 LegLastPx 638 PriorityIndicator 639 PriceImprovement
640 Price2 641 LastForwardPoints2 642 BidForwardPoints2 643 OfferForwardPoints2 644 RFQReqID 645 MktBidPx
646 MktOfferPx 647 MinBidSize 648 MinOfferSize 649 QuoteStatusReqID 650 LegalConfirm 651 UnderlyingLastPx
652 UnderlyingLastQty 654 LegRefID 655 ContraLegRefID 656 SettlCurrBidFxRate 657 SettlCurrOfferFxRate
658 QuoteRequestRejectReason 659 SideComplianceID 660 AcctIDSource 661 AllocAcctIDSource 662 BenchmarkPrice
663 BenchmarkPriceType 664 ConfirmID 665 ConfirmStatus 666 ConfirmTransType 667 ContractSettlMonth 668 DeliveryForm
669 LastParPx 670 NoLegAllocs 671 LegAllocAccount 672 LegIndividualAllocID 673 LegAllocQty 675 LegSettlCurrency
683 NoLegStipulations 687 LegQty 688 LegStipulationType 689 LegStipulationValue 690 LegSwapType 691 Pool
692 QuotePriceType 693 QuoteRespID 694 QuoteRespType 695 QuoteQualifier 699 BenchmarkSecurityID 700 ReversalIndicator
701 YieldCalcDate 702 NoPositions 703 PosType 704 LongQty 705 ShortQty 706 PosQtyStatus 707 PosAmtType 708 PosAmt
709 PosTransType 710 PosReqID 711 NoUnderlyings 712 PosMaintAction 713 OrigPosReqRefID 715 ClearingBusinessDate
716 SettlSessID 717 SettlSessSubID 718 AdjustmentType 721 PosMaintRptID 722 PosMaintStatus 723 PosMaintResult
724 PosReqType 725 ResponseTransportType 726 ResponseDestination 727 TotalNumPosReports 728 PosReqResult
729 PosReqStatus 730 SettlPrice 731 SettlPriceType 734 PriorSettlPrice 735 NoQuoteQualifiers 736 AllocSettlCurrency
737 AllocSettlCurrAmt 738 InterestAtMaturity 747 ExerciseMethod 748 TotNumTradeReports 749 TradeRequestResult
750 TradeRequestStatus 751 TradeReportRejectReason 752 SideMultiLegReportingType 753 NoPosAmt 754 AutoAcceptIndicator
755 AllocReportID 756 NoNested2PartyIDs 757 Nested2PartyID 758 Nested2PartyIDSource 759 Nested2PartyRole
762 SecuritySubType 768 NoTrdRegTimestamps 769 TrdRegTimestamp 770 TrdRegTimestampType 771 TrdRegTimestampOrigin
773 ConfirmType 774 ConfirmRejReason 775 BookingType 776 IndividualAllocRejCode 779 LastUpdateTime
780 AllocSettlInstType 789 NextExpectedMsgSeqNum 790 OrdStatusReqID 791 SettlInstReqID 793 SecondaryAllocID
794 AllocReportType 796 AllocCancReplaceReason 797 CopyMsgIndicator 799 OrderAvgPx 800 OrderBookingQty
802 NoPartySubIDs 803 PartySubIDType 804 NoNestedPartySubIDs 805 NestedPartySubIDType 810 UnderlyingPx 811 PriceDelta
818 SecondaryTradeReportID 819 AvgPxIndicator 820 TradeLinkID 822 UnderlyingTradingSessionID 825 ExchangeRule
826 TradeAllocIndicator 827 ExpirationCycle 828 TrdType 829 TrdSubType 830 TransferReason 832 TotNumAssignmentReports
833 AsgnRptID 834 ThresholdAmount 835 PegMoveType 836 PegOffsetType 837 PegLimitType 838 PegRoundDirection
839 PeggedPrice 840 PegScope 841 DiscretionMoveType 842 DiscretionOffsetType 843 DiscretionLimitType
844 DiscretionRoundDirection 845 DiscretionPrice 846 DiscretionScope 847 TargetStrategy 848 TargetStrategyParameters
849 ParticipationRate 850 TargetStrategyPerformance 851 LastLiquidityInd 852 PublishTrdIndicator 853 ShortSaleReason
854 QtyType 855 SecondaryTrdType 856 TradeReportType 857 AllocNoOrdersType 864 NoEvents 865 EventType 866 EventDate
867 EventPx 868 EventText 870 NoInstrAttrib 871 InstrAttribType 872 InstrAttribValue 873 DatedDate
874 InterestAccrualDate 875 CPProgram 878 UnderlyingCPRegType 880 TrdMatchID 881 SecondaryTradeReportRefID
883 UnderlyingEndPrice 893 LastFragment 894 CollReqID 895 CollAsgnReason 898 MarginRatio 901 CashOutstanding
911 TotNumReports 913 AgreementDesc 914 AgreementID 918 AgreementCurrency 919 DeliveryType 923 UserRequestID
924 UserRequestType 925 NewPassword 926 UserStatus 927 UserStatusText 928 StatusValue 929 StatusText 930 RefCompID
931 RefSubID 932 NetworkResponseID 933 NetworkRequestID 934 LastNetworkResponseID 935 NetworkRequestType 936 NoCompIDs
937 NetworkStatusResponseType 938 NoCollInquiryQualifier 939 TrdRptStatus 940 AffirmStatus
941 UnderlyingStrikeCurrency 947 StrikeCurrency 948 NoNested3PartyIDs 957 NoStrategyParameters
958 StrategyParameterName 959 StrategyParameterType 960 StrategyParameterValue 961 HostCrossID 962 SideTimeInForce
963 MDReportID 964 SecurityReportID 965 SecurityStatus 967 StrikeMultiplier 968 StrikeValue 969 MinPriceIncrement
970 PositionLimit 979 InputSource 980 SecurityUpdateAction 988 UnderlyingSettlementStatus 996 UnitOfMeasure
997 TimeUnit 1003 TradeID 1005 SideTradeReportID 1006 SideFillStationCd 1008 SideTrdSubTyp 1009 SideLastQty
1011 MessageEventSource 1012 SideTrdRegTimestamp 1015 AsOfIndicator 1016 NoSideTrdRegTS 1021 MDBookType
1022 MDFeedType 1023 MDPriceLevel 1024 MDOriginType 1025 FirstPx 1026 MDEntrySpotRate 1027 MDEntryForwardPoints
1028 ManualOrderIndicator 1029 CustDirectedOrder 1030 ReceivedDeptID 1031 CustOrderHandlingInst
1032 OrderHandlingInstSource 1033 DeskType 1034 DeskTypeSource 1035 DeskOrderHandlingInst 1036 ExecAckStatus
1040 SecondaryTradeID 1041 FirmTradeID 1047 AllocPositionEffect 1048 DealingCapacity 1056 CalculatedCcyLastQty
1057 AggressorIndicator 1058 NoUndlyInstrumentParties 1069 SwapPoints 1070 MDQuoteType 1071 LastSwapPoints
1079 MaturityTime 1080 RefOrderID 1081 RefOrderIDSource 1082 SecondaryDisplayQty 1083 DisplayWhen 1084 DisplayMethod
1085 DisplayLowQty 1086 DisplayHighQty 1087 DisplayMinIncr 1088 RefreshQty 1089 MatchIncrement 1090 MaxPriceLevels
1091 PreTradeAnonymity 1092 PriceProtectionScope 1093 LotType 1094 PegPriceType 1095 PeggedRefPrice
1096 PegSecurityIDSource 1097 PegSecurityID 1098 PegSymbol 1099 PegSecurityDesc 1100 TriggerType 1101 TriggerAction
1102 TriggerPrice 1103 TriggerSymbol 1104 TriggerSecurityID 1105 TriggerSecurityIDSource 1106 TriggerSecurityDesc
1107 TriggerPriceType 1108 TriggerPriceTypeScope 1109 TriggerPriceDirection 1110 TriggerNewPrice 1111 TriggerOrderType
1112 TriggerNewQty 1113 TriggerTradingSessionID 1114 TriggerTradingSessionSubID 1115 OrderCategory 1116 NoRootPartyIDs
1117 RootPartyID 1118 RootPartyIDSource 1119 RootPartyRole 1123 TradeHandlingInstr 1126 OrigTradeID 1128 ApplVerID
1129 CstmApplVerID 1130 RefApplVerID 1131 RefCstmApplVerID 1133 ExDestinationIDSource 1135 RptSys
1137 DefaultApplVerID 1138 DisplayQty 1139 ExchangeSpecialInstructions 1148 LowLimitPrice 1149 HighLimitPrice
1151 SecurityGroup 1156 ApplExtID 1166 QuoteMsgID 1180 ApplID 1181 ApplSeqNum 1182 ApplBegSeqNum 1183 ApplEndSeqNum
1184 SecurityXMLLen 1185 SecurityXML 1188 Volatility 1300 MarketSegmentID 1301 MarketID 1328 RejectText 1346 ApplReqID
1350 ApplLastSeqNum 1352 ApplResendFlag 1362 NoFills 1363 FillExecID 1364 FillPx 1365 FillQty 1385 ContingencyType
1397 EncodedMktSegmDescLen 1398 EncodedMktSegmDesc 1400 EncryptedPasswordMethod 1401 EncryptedPasswordLen
1402 EncryptedPassword 1403 EncryptedNewPasswordLen 1404 EncryptedNewPassword 1407 DefaultApplExtID
1408 DefaultCstmApplVerID 1409 SessionStatus
)";

// Types of messages have a letter or two.
const std::string_view FIX_MESSAGE_NAMES = R"(
0 Heartbeat 1 TestRequest 2 ResendRequest 3 Reject 4 SequenceReset 5 Logout 6 IOI 7 Advertisement 8 ExecutionReport
9 OrderCancelReject A Logon B News C Email D NewOrderSingle E NewOrderList F OrderCancelRequest
G OrderCancelReplaceRequest H OrderStatusRequest J AllocationInstruction K ListCancelRequest L ListExecute
M ListStatusRequest N ListStatus P AllocationInstructionAck Q DontKnowTrade R QuoteRequest S Quote
T SettlementInstructions V MarketDataRequest W MarketDataSnapshotFullRefresh X MarketDataIncrementalRefresh
Y MarketDataRequestReject Z QuoteCancel a QuoteStatusRequest b MassQuoteAcknowledgement c SecurityDefinitionRequest
d SecurityDefinition e SecurityStatusRequest f SecurityStatus g TradingSessionStatusRequest h TradingSessionStatus
i MassQuote j BusinessMessageReject k BidRequest l BidResponse m ListStrikePrice n XMLnonFIX
o RegistrationInstructions p RegistrationInstructionsResponse q OrderMassCancelRequest r OrderMassCancelReport
s NewOrderCross t CrossOrderCancelReplaceRequest u CrossOrderCancelRequest v SecurityTypeRequest w SecurityTypes
x SecurityListRequest y SecurityList z DerivativeSecurityListRequest AA DerivativeSecurityList AB NewOrderMultileg
AC MultilegOrderCancelReplace AD TradeCaptureReportRequest AE TradeCaptureReport AF OrderMassStatusRequest
AG QuoteRequestReject AH RFQRequest AI QuoteStatusReport AJ QuoteResponse AK Confirmation
AL PositionMaintenanceRequest AM PositionMaintenanceReport AN RequestForPositions AO RequestForPositionsAck
AP PositionReport AQ TradeCaptureReportRequestAck AR TradeCaptureReportAck AS AllocationReport AT AllocationReportAck
AU ConfirmationAck AV SettlementInstructionRequest AW AssignmentReport AX CollateralRequest AY CollateralAssignment
AZ CollateralResponse BA CollateralReport BB CollateralInquiry BC NetworkCounterpartySystemStatusRequest
BD NetworkCounterpartySystemStatusResponse BE UserRequest BF UserResponse BG CollateralInquiryAck
BH ConfirmationRequest BI TradingSessionListRequest BJ TradingSessionList BK SecurityListUpdateReport
BL AdjustedPositionReport BM AllocationInstructionAlert BN ExecutionAcknowledgement BO ContraryIntentionReport
BP SecurityDefinitionUpdateReport BQ SettlementObligationReport BW ApplicationMessageRequest
BX ApplicationMessageRequestAck BY ApplicationMessageReport BZ OrderMassActionReport CA OrderMassActionRequest
CB UserNotification
)";

}  // namespace tabulo::api
